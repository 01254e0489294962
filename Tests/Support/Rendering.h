#ifndef TESTS_SUPPORT_RENDERING_H_
#define TESTS_SUPPORT_RENDERING_H_

#include <string>
#include <string_view>

#include "JSONParser.h"
#include "QDOObject.h"

// Converts nodes and values to short strings, so that a test states its result in one line and a
// failure prints both trees. Different values give different strings:
//
//     7 (integer)   0.2d (double)   "a\xC3\xA9" (string)   true   null   [7,unset]   {"k":7}
//     #12 (proxy identifier)   undefined

/// Returns `bytes` in quotes. A quote, a backslash and every byte outside printable ASCII become
/// \xNN.
std::string Quoted(std::string_view bytes);

/// Returns the shortest "%g" form that gives the same value when read, followed by "d".
std::string DoubleText(double value);

std::string Text(const QDOJSONValue& node);

/// Returns the rendered value. A type without a getter is rendered by its name.
std::string Text(const QDOObject& value);

/// Returns `(item,item,…)` with the given brackets. `text` renders each item.
template <typename Container, typename ItemText>
std::string Bracketed(const Container& items, char open, char close, ItemText text) {
  std::string result(1, open);
  for (const auto& item : items) {
    result += (result.size() > 1 ? "," : "") + text(item);
  }
  return result + close;
}

#endif  // TESTS_SUPPORT_RENDERING_H_
