/* The host's message catalogue, as the library calls it. */
#ifndef ORBELLE_TELLCAT_H
#define ORBELLE_TELLCAT_H

#ifdef __cplusplus
extern "C" {
#endif

/* The identity part of message a.b.c; the first argument is always 0. */
const char *mc_get_msg_identity(int zero, int a, int b, int c);

/* The text of message a.b.c. */
const char *mc_get_msg_text(int a, int b, int c);

/* For tests: replace the identity or the text of message a.b.c (null puts
 * the catalogue's own back). The texts are copied. */
void TellcatTestSetIdentity(int a, int b, int c, const char *identity);
void TellcatTestSetText(int a, int b, int c, const char *text);

#ifdef __cplusplus
}
#endif

#endif
