#ifndef TESTS_SUPPORT_RENDERING_H_
#define TESTS_SUPPORT_RENDERING_H_

#include <string>
#include <string_view>

#include "JSONParser.h"
#include "QDOObject.h"

// Nodes and values as short texts, so that a test states its result in one line and a failure shows
// both trees. Different contents give different texts:
//
//     7 (integer)   0.2d (double)   "a\xC3\xA9" (string)   true   null   [7,unset]   {"k":7}
//     #12 (proxy identifier)   undefined

/// Quoted; bytes other than printable ASCII, and `"` and `\`, as \xNN.
std::string Quoted(std::string_view bytes);

/// The shortest form of "%g" that reads back the same, and a "d".
std::string DoubleText(double value);

std::string Text(const QDOJSONValue& node);

/// Kinds without a reader are shown by name only.
std::string Text(const QDOObject& value);

/// `(item,item,…)` between the given brackets; each item is made by `text`.
template <typename Container, typename ItemText>
std::string Bracketed(const Container& items, char open, char close, ItemText text) {
  std::string result(1, open);
  for (const auto& item : items) {
    result += (result.size() > 1 ? "," : "") + text(item);
  }
  return result + close;
}

#endif  // TESTS_SUPPORT_RENDERING_H_
