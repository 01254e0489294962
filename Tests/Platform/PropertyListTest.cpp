#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "PropertyList.h"

namespace {

std::string Xml(const std::string& items) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + items +
         "</dict></plist>";
}

/// The value of the key "k" in a list with `value` under it.
PropertyList::Value ValueIn(const std::string& value) {
  const auto list = PropertyList::Parse(Xml("<key>k</key>" + value));
  return list ? list->Values().at("k") : PropertyList::Value("(no list)");
}

bool IsNumber(const std::string& value, int number) {
  const PropertyList::Value found = ValueIn(value);
  return std::holds_alternative<int>(found) && std::get<int>(found) == number;
}

bool IsOther(const std::string& value) {
  return std::holds_alternative<PropertyList::OtherType>(ValueIn(value));
}

std::string Repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

/// Composes binary lists object by object, of offsets and references of so many bytes.
class Binary {
 public:
  explicit Binary(int offsetSize = 4, int referenceSize = 2)
      : offsetSize_(offsetSize), referenceSize_(referenceSize) {}

  void Add(const std::string& object) {
    offsets_ += Number(bytes_.size(), offsetSize_);
    bytes_ += object;
    ++count_;
  }
  void AddArray(const std::vector<unsigned>& elements) {
    AddContainer(0xA0, elements.size(), elements);
  }
  /// First the references to the keys, then those to the values.
  void AddDictionary(const std::vector<unsigned>& items) {
    AddContainer(0xD0, items.size() / 2, items);
  }
  std::string List(std::uint64_t root = 0) const {
    return bytes_ + offsets_ + std::string(6, '\0') +
           Number(static_cast<std::uint64_t>(offsetSize_), 1) +
           Number(static_cast<std::uint64_t>(referenceSize_), 1) + Number(count_, 8) +
           Number(root, 8) + Number(bytes_.size(), 8);
  }

  static std::string Number(std::uint64_t number, int size) {
    std::string bytes;
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
      bytes += static_cast<char>(shift < 64 ? number >> shift : 0);
    }
    return bytes;
  }

 private:
  void AddContainer(unsigned type, std::size_t size, const std::vector<unsigned>& references) {
    std::string object = Number(type | size, 1);
    for (const unsigned reference : references) {
      object += Number(reference, referenceSize_);
    }
    Add(object);
  }

  int offsetSize_;
  int referenceSize_;
  std::string bytes_ = "bplist00";
  std::string offsets_;
  std::uint64_t count_ = 0;
};

/// A dictionary whose key "a" holds `depth` arrays, each with the next one `width` times.
std::string NestedBinary(unsigned depth, unsigned width) {
  Binary binary;
  binary.AddDictionary({1, 2});
  binary.Add(
      "\x51"
      "a");
  for (unsigned i = 0; i < depth; ++i) {
    binary.AddArray(std::vector<unsigned>(width, i + 3));
  }
  binary.AddArray({});
  return binary.List();
}

std::string NestedXml(int depth) {
  return Xml("<key>a</key>" + Repeated("<array>", depth) + Repeated("</array>", depth));
}

TEST(PropertyListTest, NumbersOf32BitsAreNumbers) {
  EXPECT_TRUE(IsNumber("<integer>0</integer>", 0));
  EXPECT_TRUE(IsNumber("<integer>-1</integer>", -1));
  EXPECT_TRUE(IsNumber("<integer>2147483647</integer>", INT_MAX));
  EXPECT_TRUE(IsNumber("<integer>-2147483648</integer>", INT_MIN));
}

TEST(PropertyListTest, NumbersBeyond32BitsAreOfOtherType) {
  EXPECT_TRUE(IsOther("<integer>2147483648</integer>"));
  EXPECT_TRUE(IsOther("<integer>-2147483649</integer>"));
  EXPECT_TRUE(IsOther("<integer>4294967295</integer>"));
  EXPECT_TRUE(IsOther("<integer>9223372036854775807</integer>"));
}

TEST(PropertyListTest, LargeUnsignedNumberIsNotTakenAsNegative) {
  EXPECT_TRUE(IsOther("<integer>18446744073709551615</integer>"));
}

TEST(PropertyListTest, RealsAreNumbersOnlyWhenExact) {
  EXPECT_TRUE(IsNumber("<real>5</real>", 5));
  EXPECT_TRUE(IsNumber("<real>-2147483648</real>", INT_MIN));
  EXPECT_TRUE(IsNumber("<real>2147483647</real>", INT_MAX));
  EXPECT_TRUE(IsOther("<real>5.5</real>"));
  EXPECT_TRUE(IsOther("<real>2147483648</real>"));
  EXPECT_TRUE(IsOther("<real>-2147483649</real>"));
  EXPECT_TRUE(IsOther("<real>1e300</real>"));
  EXPECT_TRUE(IsOther("<real>nan</real>"));
  EXPECT_TRUE(IsOther("<real>+infinity</real>"));
}

TEST(PropertyListTest, BooleansAreNotNumbers) {
  EXPECT_TRUE(IsOther("<true/>"));
  EXPECT_TRUE(IsOther("<false/>"));
}

TEST(PropertyListTest, OtherTypesAreOfOtherType) {
  for (const char* value : {"<date>2020-01-02T03:04:05Z</date>", "<data>AAEC</data>", "<array/>",
                            "<dict><key>CF$UID</key><integer>1</integer></dict>"}) {
    EXPECT_TRUE(IsOther(value)) << value;
  }
}

TEST(PropertyListTest, OnlyADictionaryIsAList) {
  for (const char* root : {"<array/>", "<string>x</string>", "<integer>1</integer>"}) {
    EXPECT_FALSE(PropertyList::Parse(std::string("<plist version=\"1.0\">") + root + "</plist>"))
        << root;
  }
}

TEST(PropertyListTest, MalformedBytesAreNoList) {
  for (const std::string& bytes :
       {std::string(), std::string("x"), std::string("<plist>"), std::string(3, '\0'),
        std::string("bplist00"), "bplist00" + std::string(32, '\0'),
        "bplist00" + std::string(64, '\xFF'), Xml("<string>x</string>")}) {
    EXPECT_FALSE(PropertyList::Parse(bytes)) << bytes;
  }
}

TEST(PropertyListTest, EveryCutOfAListIsHandled) {
  const std::string xml = Xml("<key>k</key><array><string>x</string><integer>1</integer></array>");
  const std::string binary = NestedBinary(3, 2);
  ASSERT_TRUE(PropertyList::Parse(xml));
  ASSERT_TRUE(PropertyList::Parse(binary));
  for (std::size_t length = 0; length < xml.size(); ++length) {
    PropertyList::Parse(xml.substr(0, length));
  }
  for (std::size_t length = 0; length < binary.size(); ++length) {
    EXPECT_FALSE(PropertyList::Parse(binary.substr(0, length))) << length;
  }
}

TEST(PropertyListTest, EveryChangedByteOfABinaryListIsHandled) {
  const std::string binary = NestedBinary(3, 2);
  for (std::size_t at = 0; at < binary.size(); ++at) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string changed = binary;
      changed[at] = static_cast<char>(byte);
      if (const auto list = PropertyList::Parse(changed)) {
        EXPECT_TRUE(PropertyList::Parse(*list->Print())) << at << " " << byte;
      }
    }
  }
}

TEST(PropertyListTest, TextThatIsNotUtf8MakesNoList) {
  EXPECT_FALSE(PropertyList::Parse(Xml("<key>k</key><string>\xFF</string>")));
  EXPECT_FALSE(PropertyList::Parse(Xml("<key>\xC3</key><string>x</string>")));
  EXPECT_FALSE(
      PropertyList::Parse(Xml("<key>k</key><array><string>\xED\xA0\x80</string></array>")));
}

TEST(PropertyListTest, EveryCharacterIsText) {
  for (const char* text : {"", "a", "\x01", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80",
                           "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBE", "\xEF\xBF\xBF",
                           "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA9z\xE2\x82\xACz"}) {
    EXPECT_TRUE(PropertyList::IsText(text)) << text;
  }
}

TEST(PropertyListTest, BytesThatAreNotUtf8AreNotText) {
  const char* const bad[] = {"\x80",
                             "\xBF",
                             "\x80\x80",
                             "\xBF\xBF",
                             "\xFF",
                             "a\x80z",  // no first byte
                             "\xC3",
                             "\xE2\x82",
                             "\xE2",
                             "\xF0\x9F\x98",
                             "\xF0\x9F",
                             "\xF0",  // cut
                             "\xC3z",
                             "\xC3\xC3",
                             "\xE2z\xAC",
                             "\xE2\x82z",
                             "\xF0z\x98\x80",
                             "\xF0\x9Fz\x80",
                             "\xF0\x9F\x98z",
                             "\xC3\x28",
                             "\xC3\xE9",  // broken off
                             "\xC0\x80",
                             "\xC1\xBF",
                             "\xE0\x80\x80",
                             "\xE0\x9F\xBF",  // longer than needed
                             "\xF0\x80\x80\x80",
                             "\xF0\x8F\xBF\xBF",
                             "\xED\xA0\x80",
                             "\xED\xBF\xBF",  // surrogates
                             "\xF4\x90\x80\x80",
                             "\xF7\xBF\xBF\xBF",  // beyond the last character
                             "\xF8\x88\x80\x80\x80",
                             "\xF8\x90\x80\x80",
                             "\xFE\x80\x80\x80"};
  for (const std::string text : bad) {
    EXPECT_FALSE(PropertyList::IsText(text)) << testing::PrintToString(text);
    EXPECT_FALSE(PropertyList::IsText("a" + text + "z")) << testing::PrintToString(text);
  }
  EXPECT_FALSE(PropertyList::IsText(std::string("a\0b", 3)));
}

/// Whether a list is binary that holds `text`, which it then holds unchanged.
bool NeedsBinary(const std::string& text) {
  PropertyList list;
  list.Apply({{"k", text}});
  const std::string bytes = list.Print().value();
  EXPECT_EQ(std::get<std::string>(PropertyList::Parse(bytes)->Values().at("k")), text);
  return bytes.rfind("bplist00", 0) == 0;
}

TEST(PropertyListTest, ListIsBinaryOnlyForCharactersThatXmlCannotHold) {
  for (const char* text :
       {"", "a", "\t", "\n", " ", "\x7F", "\xC2\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
        "\xEF\xBF\xBD", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_FALSE(NeedsBinary(text)) << testing::PrintToString(text);
  }
  for (const char* text : {"\x01", "\x08", "\x0B", "\x0C", "\r", "\x0E", "\x1F", "\xEF\xBF\xBE",
                           "\xEF\xBF\xBF", "\x01z", "z\x01"}) {
    EXPECT_TRUE(NeedsBinary(text)) << testing::PrintToString(text);
  }
}

TEST(PropertyListTest, ZeroInATextOrKeyMakesNoListAndDoesNotEndTheProcess) {
  const std::string narrow(
      "\x53"
      "a\0b",
      4);
  const std::string wide("\x62\0a\0\0", 5);
  for (const std::string& text : {narrow, wide}) {
    for (const bool isKey : {true, false}) {
      Binary binary;
      binary.AddDictionary({1, 2});
      binary.Add(isKey ? text
                       : "\x51"
                         "k");
      binary.Add(isKey ? "\x51"
                         "v"
                       : text);
      EXPECT_FALSE(PropertyList::Parse(binary.List())) << isKey << text;
    }
  }
  const std::string zero(1, '\0');
  EXPECT_FALSE(PropertyList::Parse(Xml("<key>k</key><string>a" + zero + "</string>")));
  EXPECT_FALSE(PropertyList::Parse(Xml("<key>k</key><string>a&#0;</string>")));
  EXPECT_FALSE(PropertyList::Parse(Xml("<key>a&#0;</key><true/>")));
}

TEST(PropertyListTest, KeyThatOccursTwiceInADictionaryBelowMakesNoList) {
  Binary binary;
  binary.AddDictionary({1, 2});
  binary.Add(
      "\x51"
      "a");
  binary.AddDictionary({1, 1, 1, 1});
  EXPECT_FALSE(PropertyList::Parse(binary.List()));
}

TEST(PropertyListTest, IntegerBeyond64BitsMakesNoListAndIsNotCut) {
  for (const std::uint64_t upper : {0ULL, 1ULL, ~0ULL}) {
    Binary binary;
    binary.AddDictionary({1, 2});
    binary.Add(
        "\x51"
        "a");
    binary.Add("\x14" + Binary::Number(upper, 8) + Binary::Number(7, 8));
    EXPECT_EQ(upper == 0, PropertyList::Parse(binary.List()).has_value()) << upper;
  }
}

TEST(PropertyListTest, KeyThatOccursTwiceMakesNoList) {
  Binary binary;
  binary.AddDictionary({1, 1, 2, 2});
  binary.Add(
      "\x51"
      "a");
  binary.Add(
      "\x51"
      "b");
  EXPECT_FALSE(PropertyList::Parse(binary.List()));
}

TEST(PropertyListTest, DeepNestingIsNoList) {
  EXPECT_TRUE(PropertyList::Parse(NestedXml(500)));
  EXPECT_TRUE(PropertyList::Parse(NestedBinary(500, 1)));
  EXPECT_FALSE(PropertyList::Parse(NestedXml(1000000)));
  EXPECT_FALSE(PropertyList::Parse(NestedBinary(60000, 1)));
}

TEST(PropertyListTest, DeepestListsArePrintedAgain) {
  for (const std::string& deep : {NestedXml(4000), NestedBinary(3999, 1)}) {
    const auto list = PropertyList::Parse(deep);
    ASSERT_TRUE(list);
    const auto bytes = list->Print();
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(PropertyList::Parse(*bytes));
  }
}

TEST(PropertyListTest, ListThatWouldBeTooLargeIsNotPrinted) {
  const auto list = PropertyList::Parse(NestedXml(4999));  // a line of tabs a level
  ASSERT_TRUE(list);
  EXPECT_FALSE(list->Print());
}

TEST(PropertyListTest, DeepListOfXmlThatOnlyABinaryListCanHoldIsReadAgain) {
  auto list = PropertyList::Parse(NestedXml(600));
  ASSERT_TRUE(list);
  list->Apply({{"control", "\x01"}});
  const auto bytes = list->Print();
  ASSERT_TRUE(bytes);
  EXPECT_TRUE(PropertyList::Parse(*bytes));
}

TEST(PropertyListTest, SharedArraysOfABinaryListAreReadAgainFromXml) {
  const auto list = PropertyList::Parse(NestedBinary(11, 2));  // 4,095 arrays
  ASSERT_TRUE(list);
  const auto bytes = list->Print();
  ASSERT_TRUE(bytes);
  EXPECT_TRUE(PropertyList::Parse(*bytes));
  EXPECT_FALSE(PropertyList::Parse(NestedBinary(12, 2)));  // which XML could not hold
}

TEST(PropertyListTest, ListThatWouldBeReadNoMoreIsNotPrinted) {
  auto list =
      PropertyList::Parse(Xml("<key>a</key><array>" + Repeated("<true/>", 600000) + "</array>"));
  ASSERT_TRUE(list);
  EXPECT_TRUE(list->Print());
  list->Apply({{"control", "\x01"}});  // a binary list may not have as many values
  EXPECT_FALSE(list->Print());
}

TEST(PropertyListTest, SharedObjectsThatMultiplyAreNoList) {
  EXPECT_TRUE(PropertyList::Parse(NestedBinary(10, 2)));
  EXPECT_FALSE(PropertyList::Parse(NestedBinary(60, 2)));
}

TEST(PropertyListTest, BinaryListThatContainsItselfIsNoList) {
  Binary binary;
  binary.AddDictionary({1, 0});
  binary.Add(
      "\x51"
      "a");
  EXPECT_FALSE(PropertyList::Parse(binary.List()));
}

TEST(PropertyListTest, ListHasUpTo5000Containers) {
  EXPECT_TRUE(PropertyList::Parse(NestedXml(4999)));
  EXPECT_FALSE(PropertyList::Parse(NestedXml(5000)));
  EXPECT_TRUE(PropertyList::Parse(NestedBinary(4998, 1)));
  EXPECT_FALSE(PropertyList::Parse(NestedBinary(4999, 1)));
}

TEST(PropertyListTest, BinaryListMayHaveOffsetsAndReferencesOfUpTo8Bytes) {
  for (int size = 0; size <= 9; ++size) {
    for (const bool isOffset : {true, false}) {
      Binary binary(isOffset ? size : 4, isOffset ? 2 : size);
      binary.AddDictionary({1, 2});
      binary.Add(
          "\x51"
          "a");
      binary.AddArray({1, 1});
      EXPECT_EQ(size >= 1 && size <= 8, PropertyList::Parse(binary.List()).has_value())
          << size << isOffset;
    }
  }
}

TEST(PropertyListTest, RootOfABinaryListMayBeAnyObject) {
  Binary binary;
  binary.Add(
      "\x51"
      "a");
  binary.AddDictionary({0, 0});
  EXPECT_TRUE(PropertyList::Parse(binary.List(1)));
  EXPECT_FALSE(PropertyList::Parse(binary.List(2)));
}

TEST(PropertyListTest, BinaryListHasAsManyValuesAsFitItsBoundOfMemory) {
  for (const bool fits : {true, false}) {
    Binary binary;
    binary.AddDictionary({1, 2});
    binary.Add(
        "\x51"
        "a");
    // Each object counts 32 bytes, and the key one more.
    const unsigned count = (PropertyList::kLargest - 1) / 32 - 3 + (fits ? 0 : 1);
    binary.Add("\xAF\x12" + Binary::Number(count, 4) +
               Repeated(Binary::Number(3, 2), static_cast<int>(count)));
    binary.Add("\x10\x01");  // an integer of one byte
    EXPECT_EQ(fits, PropertyList::Parse(binary.List()).has_value());
  }
}

TEST(PropertyListTest, BinaryListWhoseTableLeadsBehindItsEndIsNoList) {
  Binary binary;
  binary.AddDictionary({});
  for (const std::uint64_t root : {0U, 1U, 8U, 9U, 10U}) {
    std::string list = binary.List(root);
    list.replace(list.size() - 24, 8, Binary::Number(11, 8));          // objects
    list.replace(list.size() - 8, 8, Binary::Number(list.size(), 8));  // table
    EXPECT_FALSE(PropertyList::Parse(list)) << root;
  }
}

TEST(PropertyListTest, LargeSharedTextOrDataIsNoList) {
  const std::string kinds[] = {"\x4F", "\x5F", "\x6F"};  // data, text, wide text
  for (const std::string& kind : kinds) {
    for (const unsigned times : {2U, 60000U}) {
      Binary binary;
      binary.AddDictionary({1, 2});
      binary.Add(
          "\x51"
          "a");
      binary.Add("\xAF\x11" + Binary::Number(times, 2) +
                 Repeated(Binary::Number(3, 2), static_cast<int>(times)));
      const std::size_t width = kind == "\x6F" ? 2 : 1;
      binary.Add(kind + "\x12" + Binary::Number(1000000, 4) + std::string(1000000 * width, 'x'));
      EXPECT_EQ(times == 2, PropertyList::Parse(binary.List()).has_value()) << kind;
    }
  }
}

TEST(PropertyListTest, CountOfTwoBytesIsReadWhole) {
  Binary binary;
  binary.AddDictionary({1, 2});
  binary.Add(
      "\x51"
      "a");
  for (unsigned next = 3; next <= 6; ++next) {  // arrays of 16 times the next one
    binary.Add("\xAF\x11" + Binary::Number(16, 2) + Repeated(Binary::Number(next, 2), 16));
  }
  binary.AddArray({});
  EXPECT_FALSE(PropertyList::Parse(binary.List()));
}

TEST(PropertyListTest, LargeListIsNoList) {
  EXPECT_FALSE(PropertyList::Parse(Xml(std::string(PropertyList::kLargest, ' '))));
}

TEST(PropertyListTest, RemovingOfManyKeysRemovesAll) {
  PropertyList list;
  PropertyList::Changes changes;
  for (int i = 0; i < 2000; ++i) {
    changes["key" + std::to_string(i)] = i;
  }
  list.Apply(changes);
  EXPECT_EQ(2000U, list.Values().size());
  for (auto& [key, change] : changes) {
    change = std::nullopt;
  }
  list.Apply(changes);
  EXPECT_TRUE(list.Values().empty());
}

}  // namespace
