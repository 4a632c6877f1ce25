// A class declared in the wrong namespace, which can be told only from the classes of the standard
// library.

#include <mutex>

namespace mistakes {

class mutex;  // finds: bugprone-forward-declaration-namespace

}  // namespace mistakes
