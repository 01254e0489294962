#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "AllocationProbe.h"
#include "JSONParser.h"
#include "QDOJSONParser.h"
#include "QDOObjectProbe.h"
#include "UTF8String.h"

namespace {

const char kLong[] = "a text longer than the small ones";
const char kJson[] = R"({"a key beyond the small ones":[1,2.5,"12^",{"n":[[],{}]}],"e":"\u00e9",)"
                     R"("literals":[true,false,null]})";

struct Operation {
  const char* name;
  long allocations;  // the least number of allocations
  std::function<void()> perform;
};

/// Marks `object` as used, so that the compiler keeps the code that made the object.
template <typename Object>
void Escape(const Object& object) {
  AllocationProbe::escape(&object);
}

void ScanAll(const std::string& text) {
  Escape(QDOJSONParserImplHelper(reinterpret_cast<const unsigned char*>(text.c_str()),
                                 static_cast<unsigned int>(text.size())));
}

std::vector<QDOObject> CopiableKinds() {
  std::vector<QDOObject> kinds = OneOfEachKind();
  kinds.pop_back();  // the Handle without content
  return kinds;
}

/// Returns all operations of the byte strings, the scanner, the values and the front end that
/// allocate memory.
std::vector<Operation> Operations() {
  static const UTF8String bytes(kLong);
  static const std::vector<QDOObject> kinds = CopiableKinds();
  static const std::string json = kJson;
  static const std::string longKey =
      json.substr(0, json.size() - 1) + ",\"" + std::string(32768, 'k') + R"(":["text"]})";
  return {
      {"UTF8String(char const*)", 1, [] { Escape(UTF8String(kLong)); }},
      {"UTF8String(UTF8String const&)", 1, [] { Escape(UTF8String(bytes)); }},
      {"UTF8String::assign", 1, [] { Escape(UTF8String().assign(kLong)); }},
      {"UTF8String::append(UTF8String const&)", 1, [] { Escape(UTF8String().append(bytes)); }},
      {"UTF8String::append(char const*)", 1, [] { Escape(UTF8String().append(kLong)); }},
      {"UTF8String::append(char const*, unsigned long)", 1,
       [] { Escape(UTF8String().append(kLong, sizeof kLong - 1)); }},
      {"UTF8String::append(char)", 1,
       [] {
         UTF8String text;
         for (int i = 0; i < 100; ++i) {
           text.append('x');
         }
         Escape(text);
       }},
      {"scanner", 20, [] { ScanAll(json); }},
      {"set(char const*)", 3, [] { Escape(QDOObject().set(kLong)); }},
      {"setString", 3,
       [] {
         QDOObject value;
         value.setString(kLong);
         Escape(value);
       }},
      {"createVector", 2, [] { Escape(Make(QDOObject::Vector)); }},
      {"createMap", 2, [] { Escape(Make(QDOObject::Map)); }},
      {"createSet", 2, [] { Escape(Make(QDOObject::Set)); }},
      {"copies of each kind", 5,
       [] {
         for (const QDOObject& kind : kinds) {
           Escape(QDOObject(kind));
         }
       }},
      {"set over each kind", 8,
       [] {
         for (const QDOObject& earlier : kinds) {
           for (const QDOObject& later : kinds) {
             QDOObject value(earlier);
             Escape(value.set(later));
           }
         }
       }},
      {"operator[]", 4, [] { Escape(Make(QDOObject::Map)[kLong].set(QDOObject::Map)); }},
      {"getVector().push_back", 4,
       [] {
         QDOObject vector = Make(QDOObject::Vector);
         vector.getVector().push_back(Make(kLong));
         Escape(vector);
       }},
      {"fromJSON", 20, [] { Escape(QDOJSONParser::fromJSON(json, false)); }},
      {"fromJSON with proxies", 20, [] { Escape(QDOJSONParser::fromJSON(json, true)); }},
      {"fromJSON of a long key", 40, [] { Escape(QDOJSONParser::fromJSON(longKey, false)); }},
  };
}

/// Makes each allocation of each operation fail. Expects that one of the two exceptions reports
/// each failure, and that no memory leaks.
void ExpectEveryFailureIsReported(AllocationProbe::Mode mode) {
  for (const Operation& operation : Operations()) {
    SCOPED_TRACE(operation.name);
    const long before = AllocationProbe::live();
    long nth = 1;
    while (AttemptFailingNth(nth, operation.perform, mode) != Outcome::Done) {
      EXPECT_EQ(AllocationProbe::live(), before) << "allocation " << nth;
      ++nth;
    }
    const long already = AllocationProbe::made();
    operation.perform();
    EXPECT_EQ(AllocationProbe::made() - already, nth - 1) << "a failure was swallowed";
    EXPECT_GE(nth - 1, operation.allocations);
    EXPECT_EQ(AllocationProbe::live(), before);
  }
}

}  // namespace

TEST(ExhaustionTest, EveryAllocationThatFailsOnceIsReported) {
  ExpectEveryFailureIsReported(AllocationProbe::kOnce);
}

TEST(ExhaustionTest, EveryAllocationThatFailsFromThenOnIsReported) {
  ExpectEveryFailureIsReported(AllocationProbe::kFromThenOn);
}
