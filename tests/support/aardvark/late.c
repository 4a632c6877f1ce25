/* A library whose functions are not there until the environment says so. An indirect function is
 * resolved when it is looked up, and one that resolves to nothing counts as missing. */

#include <stdint.h>
#include <stdlib.h>

#define EXPORT __attribute__((visibility("default")))

typedef uint32_t (*VersionFunction)(void);
typedef int (*PortFunction)(int);

static uint32_t version(void) { return 0x050A050A; }
static int port(int handle) { return handle + 100; }

/* Used by name in the attributes only, which some compilers do not count. */
static VersionFunction findVersion(void)
    __attribute__((used, no_sanitize("address", "thread", "undefined")));
static PortFunction findPort(void)
    __attribute__((used, no_sanitize("address", "thread", "undefined")));

static VersionFunction findVersion(void) { return getenv("c_version") != NULL ? version : NULL; }
static PortFunction findPort(void) { return getenv("c_aa_port") != NULL ? port : NULL; }

EXPORT uint32_t c_version(void) __attribute__((ifunc("findVersion")));
EXPORT int c_aa_port(int handle) __attribute__((ifunc("findPort")));
