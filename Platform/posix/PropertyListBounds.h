#ifndef PLATFORM_POSIX_PROPERTYLISTBOUNDS_H_
#define PLATFORM_POSIX_PROPERTYLISTBOUNDS_H_

#include <cstddef>
#include <optional>
#include <string>

enum class PropertyListForm { kXml, kBinary };

/// The largest list, in bytes, that is read or printed.
constexpr std::size_t kLargestPropertyList = std::size_t{16} << 20;

/// Returns the form of `bytes` if libplist can read them exactly, in a bounded time and memory;
/// nothing otherwise. libplist does not check that: it recurses as deep as a list nests; a few
/// bytes of a binary list, whose objects may be shared, can represent a list of any size; a zero in
/// a key ends the process; keys that are repeated or have equal hashes, and entities in a text,
/// take time that grows with the square of their number; an integer is cut to 64 bits, and whatever
/// follows its digits is left out; a date that does not exist is read as another one, and so is
/// half of a surrogate pair; a key without a value is left out. XML that is more unusual than
/// property lists are is refused, too.
///
/// A list whose form is returned is not necessarily a valid one. Takes time in proportion to the
/// length of `bytes`, apart from a logarithm.
std::optional<PropertyListForm> FormWithinBounds(const std::string& bytes);

#endif  // PLATFORM_POSIX_PROPERTYLISTBOUNDS_H_
