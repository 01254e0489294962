#include "QDOException.h"

#include <cstddef>
#include <iterator>

namespace {

constexpr int kNotEnoughMemory = 1;
constexpr std::size_t kNotEnoughInformation = 9;

constexpr const char* kMessages[] = {
    "Unknown Exception",      "Not Enough Memory",      "Null Dereference", "Unexpected Type",
    "Member Missing",         "Size Overflow",          "Invalid Context",  "Invalid Proxy Object",
    "Invalid Cast Exception", "Not Enough Information", "Object Not Found", "Invalid Content",
    "Element already exists", "Invalid JSON Structure",
};

}  // namespace

const char* QDOException::what() const noexcept {
  const auto index = static_cast<unsigned int>(code_);  // a negative code is too large, on purpose
  return kMessages[index < std::size(kMessages) ? index : kNotEnoughInformation];
}

QDOException& QDOException::NotEnoughMemory() {
  static QDOException prototype(kNotEnoughMemory);
  return prototype;
}
