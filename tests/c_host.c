/* The smallest host: a path that names nothing is answered by 0. */
#include <stddef.h>

#include "vorn/vorn.h"

int main(void) {
  if (VornBundle(NULL, 0) != 0 || VornScanBundle("", 0) != 0) {
    return 1;
  }
  return VornBundle("no-such-project.ctl", 1) != 0;
}
