/* Started by test.sh before the 32-bit tests: whether this machine runs the
   32-bit build's programs, natively or under an emulator. Exits 0 only when
   it really runs as a 32-bit program. */
#include <stdio.h>

int main(void) {
    if (sizeof(void *) != 4) return 1;
    puts("32-bit programs start");
    return 0;
}
