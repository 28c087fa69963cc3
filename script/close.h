// Closing the connection of an object whose last handle at that address is
// given back.
#ifndef ORBELLE_CLOSE_H
#define ORBELLE_CLOSE_H

class Environment;
struct objrefdata;

// Closes the connection to data's address in force (opening one first when
// none is idle) and marks it dead, so that the next request to that address
// connects anew. A failure stays in env for the caller to look at.
void vu_close_connection(objrefdata *data, Environment &env);

#endif
