// What the C++ library calls where it would throw. Nothing here can catch: the process ends on the spot. With these the
// daemon carries neither the machinery of exceptions nor, linked with -static-libstdc++, the library.
#include <cstdlib>

namespace std
{

[[noreturn]] void __throw_system_error(int);
[[noreturn]] void __throw_out_of_range_fmt(const char *, ...);

/// A mutex that cannot be locked or a lock that is released twice.
void __throw_system_error(int)
{
    abort();
}

/// A part of a text that begins behind its end.
void __throw_out_of_range_fmt(const char *, ...)
{
    abort();
}

} // namespace std
