/* The adapter's interface is C's, too. */

#include <aardvark.h>

int openFromC(void);

int openFromC(void) {
  const AardvarkConfig config = kAardvarkConfigSpiI2c;
  const Aardvark aardvark = aa_open(0);
  return aardvark < 0 ? aardvark : aa_configure(aardvark, config);
}
