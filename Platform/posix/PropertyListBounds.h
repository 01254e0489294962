#ifndef PLATFORM_POSIX_PROPERTYLISTBOUNDS_H_
#define PLATFORM_POSIX_PROPERTYLISTBOUNDS_H_

#include <string>

/// Whether libplist can be trusted with `bytes`. It recurses as deep as a list nests; a few bytes
/// of a binary list, whose objects may be shared, can stand for a list of any size; a zero in a key
/// ends the process; integers of more than 64 bits are cut. Nothing of that is seen to there. A
/// list that passes is not necessarily a valid one.
bool IsWithinBounds(const std::string& bytes);

#endif  // PLATFORM_POSIX_PROPERTYLISTBOUNDS_H_
