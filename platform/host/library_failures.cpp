// What the C++ library calls where it would throw. Nothing here can catch: the process ends on the spot. With these the
// daemon carries neither the machinery of exceptions nor, linked with -static-libstdc++, the library.
#include <cstdlib>

namespace std
{

[[noreturn]] void __throw_system_error(int);

/// A mutex that cannot be locked or a lock that is released twice.
void __throw_system_error(int)
{
    abort();
}

} // namespace std
