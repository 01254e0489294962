#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "PropertyList.h"

/// In the place of libplist's, which walks through all items to remove one: nothing may call it.
extern "C" void plist_dict_remove_item(void* node, const char* key);
extern "C" void plist_dict_remove_item(void* /*node*/, const char* key) {
  ADD_FAILURE() << "removes one item: " << key;
}

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

// libplist reads it from a binary list as a UID, which it is not.
TEST(PropertyListTest, DictionaryThatABinaryListTurnsIntoAUidIsNotPrintedAsSuch) {
  auto list =
      PropertyList::Parse(Xml("<key>k</key><dict><key>CF$UID</key><integer>5</integer></dict>"));
  ASSERT_TRUE(list);
  list->Apply({{"control", "\x01"}});
  const auto bytes = list->Print();
  EXPECT_TRUE(!bytes || bytes->find("CF$UID") != std::string::npos);
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

/// A binary list whose only value is an object of these bytes.
std::string ListOf(const std::string& object) {
  Binary binary;
  binary.AddDictionary({1, 2});
  binary.Add("\x51k");
  binary.Add(object);
  return binary.List();
}

TEST(PropertyListTest, HalfASurrogatePairInABinaryListMakesNoListAndIsNotReadAsAnotherCharacter) {
  const auto list = PropertyList::Parse(ListOf("\x64\xD8\x3D\xDE\x04\xD8\x3D\xDE\x05"));
  ASSERT_TRUE(list);
  EXPECT_EQ(std::get<std::string>(list->Values().at("k")), "\xF0\x9F\x98\x84\xF0\x9F\x98\x85");
  for (const std::string text :
       {"\x62\xD8\x3D ~", "\x62 ~\xD8\x3D", "\x62\xDE\x04\xD8\x3D", "\x62\xDB\xFF\xE0\x01",
        "\x62 ~\xDC\x01", "\x63\xD8\x3D\xDE\x04\xDE\x04", "\x63\xD8\x3D\xD8\x3D\xDE\x04"}) {
    EXPECT_FALSE(PropertyList::Parse(ListOf(text))) << text;
  }
}

TEST(PropertyListTest, NarrowTextOfABinaryListIsAscii) {
  EXPECT_TRUE(PropertyList::Parse(ListOf("\x52~\x7F")));
  EXPECT_FALSE(PropertyList::Parse(ListOf("\x52\xC3\xA4")));
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

TEST(PropertyListTest, ListThatIsTooLargeAsXmlIsBinary) {
  const auto list = PropertyList::Parse(NestedXml(4999));  // a line of tabs a level
  ASSERT_TRUE(list);
  EXPECT_EQ(list->Print()->rfind("bplist00", 0), 0U);
}

/// So many values in arrays that nest 4,991 deep.
std::string DeepXml(int values) {
  return Xml("<key>a</key>" + Repeated("<array>", 4991) + Repeated("<true/>", values) +
             Repeated("</array>", 4991));
}

// As XML, with a tab a level: 1.3 GB, and more than the 4 GiB that libplist can count.
TEST(PropertyListTest, ListWhoseDepthTimesItsValuesIsTooLargeIsNotPrinted) {
  const auto list = PropertyList::Parse(DeepXml(129000));
  ASSERT_TRUE(list);
  EXPECT_FALSE(list->Print());
  EXPECT_FALSE(PropertyList::Parse(DeepXml(850000)));
}

#if !SANITIZED  // the sanitizers reserve all addresses there are
TEST(PropertyListTest, ListWhoseDepthTimesItsValuesIsTooLargeIsNotMadeOnlyToBeThrownAway) {
  const auto list = PropertyList::Parse(DeepXml(129000));
  ASSERT_TRUE(list);
  const auto printInLittleMemory = [&list] {
    const rlimit most = {rlim_t{512} << 20U, rlim_t{512} << 20U};
    setrlimit(RLIMIT_AS, &most);
    _exit(list->Print() ? 1 : 0);
  };
  EXPECT_EXIT(printInLittleMemory(), testing::ExitedWithCode(0), "");
}
#endif

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

TEST(LargePropertyListTest, ListThatWouldBeReadNoMoreIsNotPrinted) {
  auto list =
      PropertyList::Parse(Xml("<key>a</key><array>" + Repeated("<true/>", 500000) + "</array>"));
  ASSERT_TRUE(list);
  EXPECT_TRUE(list->Print());
  list->Apply({{"control", "\x01"}});  // a binary list may not have as many values
  EXPECT_FALSE(list->Print());
}

TEST(PropertyListTest, BinaryListOfUpTo10000ValuesIsPrinted) {
  for (const int others : {9997, 9998}) {  // beside the dictionary, the array and the text
    auto list =
        PropertyList::Parse(Xml("<key>a</key><array>" + Repeated("<true/>", others) + "</array>"));
    list->Apply({{"control", "\x01"}});
    EXPECT_EQ(others == 9997, list->Print().has_value());
  }
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

TEST(PropertyListTest, ChangedKeyKeepsItsPlaceAndNewOnesAreTheLast) {
  auto list = PropertyList::Parse(Xml("<key>z</key><true/><key>a</key><true/><key>m</key><true/>"));
  list->Apply({{"a", 1}, {"new", "x"}, {"z", std::nullopt}});
  const std::string bytes = list->Print().value();
  EXPECT_EQ(bytes.substr(bytes.find("<dict>")),
            "<dict>\n\t<key>a</key>\n\t<integer>1</integer>\n\t<key>m</key>\n\t<true/>\n"
            "\t<key>new</key>\n\t<string>x</string>\n</dict>\n</plist>\n");
}

// XML that libplist would change ----------------------------------------------------------------

/// How the value is printed again; "" when it makes no list, or no XML.
std::string Reprinted(const std::string& value) {
  const auto list = PropertyList::Parse(Xml("<key>k</key>" + value));
  const std::string bytes = list ? list->Print().value() : "";
  const std::string before = "<key>k</key>\n\t";
  const auto begin = bytes.find(before);
  return begin == std::string::npos
             ? ""
             : bytes.substr(begin + before.size(), bytes.find("\n</dict>") - begin - before.size());
}

bool IsList(const std::string& items) {
  return PropertyList::Parse(Xml(items)).has_value();
}

TEST(PropertyListXmlTest, IntegersOf64BitsAreKept) {
  const std::pair<std::string, std::string> kept[] = {
      {"0", "0"},
      {"-0", "0"},
      {"+5", "5"},
      {" \n7\t", "7"},
      {"0x1F", "31"},
      {"0Xff", "255"},
      {"0xFFFFFFFFFFFFFFFF", "18446744073709551615"},
      {"18446744073709551615", "18446744073709551615"},
      {"-9223372036854775808", "-9223372036854775808"}};
  for (const auto& [text, printed] : kept) {
    EXPECT_EQ(Reprinted("<integer>" + text + "</integer>"), "<integer>" + printed + "</integer>");
  }
}

TEST(PropertyListXmlTest, IntegerThatWouldNotBeReadExactlyMakesNoList) {
  EXPECT_FALSE(IsList("<key>k</key><integer/>"));
  for (const std::string text : {"",
                                 " ",
                                 "12abc",
                                 "1 2",
                                 "-",
                                 "+",
                                 "+-1",
                                 "--1",
                                 "0x",
                                 "0xG",
                                 "-0x1",
                                 "1.0",
                                 "1e3",
                                 "010",
                                 "18446744073709551616",
                                 "-9223372036854775809",
                                 "0x10000000000000000",
                                 "1_0",
                                 "99999999999999999999999",
                                 "1<!-- -->2"}) {
    EXPECT_FALSE(IsList("<key>k</key><integer>" + text + "</integer>")) << text;
  }
}

TEST(PropertyListXmlTest, RealThatWouldNotBeReadExactlyMakesNoList) {
  for (const std::string text : {"0.1", " 1.5 ", "-2", "1e300", ".5", "nan", "+infinity", "-INF"}) {
    EXPECT_TRUE(IsList("<key>k</key><real>" + text + "</real>")) << text;
  }
  for (const std::string text :
       {"", "x", "1.5x", "1,5", "0x1p3", "nan(1)", "1.5 2", "--1", "1_0"}) {
    EXPECT_FALSE(IsList("<key>k</key><real>" + text + "</real>")) << text;
  }
}

TEST(PropertyListXmlTest, DateHasFourDigitsForTheYearAndTwoForTheRest) {
  EXPECT_EQ(Reprinted("<date>2020-02-29T23:59:59Z</date>"), "<date>2020-02-29T23:59:59Z</date>");
  for (const std::string date :
       {"", "2020-01-02", "2020-01-02T03:04:05", "2020-01-02T03:04:05ZZ", "20-01-02T03:04:05Z",
        "2020-01-02 03:04:05Z", "+020-01-01T00:00:00Z", " 2020-01-02T03:04:05Z"}) {
    EXPECT_FALSE(IsList("<key>k</key><date>" + date + "</date>")) << date;
  }
}

TEST(PropertyListXmlTest, DateThatIsNotInTheCalendarMakesNoListAndIsNotReadAsAnother) {
  for (const std::string date : {"0001-01-01T00:00:00Z", "9999-12-31T23:59:59Z",
                                 "2004-02-29T00:00:00Z", "2000-02-29T00:00:00Z"}) {
    EXPECT_TRUE(IsList("<key>k</key><date>" + date + "</date>")) << date;
  }
  for (const std::string date :
       {"0000-01-01T00:00:00Z", "2001-00-01T00:00:00Z", "2001-13-01T00:00:00Z",
        "2001-01-00T00:00:00Z", "2001-01-32T00:00:00Z", "2001-04-31T00:00:00Z",
        "2001-02-29T00:00:00Z", "1900-02-29T00:00:00Z", "2004-02-30T00:00:00Z",
        "2001-01-01T24:00:00Z", "2001-01-01T00:60:00Z", "2001-01-01T00:00:60Z"}) {
    EXPECT_FALSE(IsList("<key>k</key><date>" + date + "</date>")) << date;
  }
}

TEST(PropertyListXmlTest, BadBase64MakesNoList) {
  for (const std::string data : {"", "QQ==", "QUI=", "QUJD", "QUJDRA==", "+/+/", "\n\t QU\n JD "}) {
    EXPECT_TRUE(IsList("<key>k</key><data>" + data + "</data>")) << data;
  }
  for (const std::string data : {"Q", "QQ", "QQ=", "QUJ", "QUJD=", "QUJDQ===", "====", "=QQ=",
                                 "QQ==QUJD", "QQ=A", "Q-JD", "Q_JD", "!!!!", "QUJ\xC3\xA9"}) {
    EXPECT_FALSE(IsList("<key>k</key><data>" + data + "</data>")) << data;
  }
}

TEST(PropertyListXmlTest, ZeroByteMakesNoListWhereverItIs) {
  const std::string list =
      Xml("<key>k</key><string>ab</string><!-- c --><key>d</key><data>QUJD</data>");
  for (std::size_t place = 0; place <= list.length(); ++place) {
    std::string damaged = list;
    damaged.insert(place, 1, '\0');
    EXPECT_FALSE(PropertyList::Parse(damaged)) << place;
  }
}

TEST(PropertyListXmlTest, UnknownEntityOrCarriageReturnMakesNoList) {
  EXPECT_EQ(Reprinted("<string>&lt;&gt;&amp;&apos;&quot;&#65;&#x42;&#xe9;</string>"),
            "<string>&lt;&gt;&amp;'\"AB\xC3\xA9</string>");
  for (const std::string text :
       {"&", "&;", "&amplify;", "&ltx;", "&nbsp;", "&#;", "&#x;", "&#X41;", "&#xG;", "&# 5;",
        "&#-1;", "&#0;", "&#xD800;", "&amp", "a&", "\r"}) {
    EXPECT_FALSE(IsList("<key>k</key><string>" + text + "</string>")) << text;
    EXPECT_FALSE(IsList("<key>" + text + "</key><true/>")) << text;
  }
}

TEST(PropertyListXmlTest, KeyThatOccursTwiceMakesNoList) {
  EXPECT_FALSE(IsList("<key>a</key><true/><key>a</key><false/>"));
  EXPECT_FALSE(IsList("<key>k</key><dict><key>a</key><true/><key>a</key><true/></dict>"));
  EXPECT_TRUE(IsList("<key>a</key><dict><key>a</key><true/></dict><key>b</key><dict />"));
}

TEST(PropertyListXmlTest, KeyWithoutAValueMakesNoListAndIsNotLeftOut) {
  for (const std::string items :
       {"<key>a</key>", "<key>a</key><key>b</key><true/>", "<true/>", "<key>a</key><true/><true/>",
        "<key>k</key><dict><key>a</key></dict>", "<key>k</key><dict><true/></dict>",
        "<key>k</key><array><key>a</key></array>", "<key>k</key><array></dict>",
        "<key>k</key><dict></array>", "</dict></dict>", "</dict><key>a</key><true/><dict>"}) {
    EXPECT_FALSE(IsList(items)) << items;
  }
}

TEST(PropertyListXmlTest, SecondRootMakesNoListAndIsNotLeftOut) {
  for (const std::string root : {"<dict/>", "<true/>", "<dict><key>a</key><true/></dict>"}) {
    EXPECT_FALSE(IsList("</dict>" + root + "<dict>")) << root;
    EXPECT_FALSE(PropertyList::Parse(Xml("") + root)) << root;
  }
}

TEST(PropertyListXmlTest, OtherEncodingThanUtf8MakesNoList) {
  for (const std::string declaration :
       {"<?xml version=\"1.0\"?>", "<?xml version=\"1.0\" encoding=\"utf-8\"?>", "<?other?>"}) {
    EXPECT_TRUE(PropertyList::Parse(declaration + "<plist><dict/></plist>")) << declaration;
  }
  EXPECT_FALSE(
      PropertyList::Parse("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>"
                          "<plist><dict><key>k</key><string>\xC3\xA4</string></dict>"));
}

// libplist passes over all of a comment, a declaration or a quotation, and reads "</dict/>" as the
// end of a dictionary. What it does not see must not hide a key that occurs twice.
TEST(PropertyListXmlTest, NothingHidesATagFromTheBounds) {
  for (const std::string hidden :
       {"<!--</dict><dict>-->", "<!--->--></dict><dict><!--->", "<?</dict><dict>?>",
        "<?\"?></dict><dict><?\"?>", "<!DOCTYPE []></dict><dict>]>",
        "<!DOCTYPE \">\"></dict><dict>", "<key>k</key><string><![CDATA[</dict><dict>]]></string>",
        "<key>k</key><string><!-- --></string>", "<key>k</key><dict></dict/>"}) {
    EXPECT_FALSE(IsList("<key>a</key><true/>" + hidden + "<key>a</key><true/>")) << hidden;
  }
  EXPECT_TRUE(IsList("<!-- a \"b\" > --><?c?><key>a</key ><true />"));
}

// Time in proportion ----------------------------------------------------------------------------

/// Keys that libplist cannot tell apart by their hashes.
std::string KeysOfEqualHash(int count) {
  std::string items;
  for (int i = 0; i < count; ++i) {
    items += "<key>";
    for (int bit = 0; bit < 13; ++bit) {
      items += (i >> bit & 1) != 0 ? "bA" : "ab";  // 33 * 'b' + 'A' == 33 * 'a' + 'b'
    }
    items += "</key><true/>";
  }
  return items;
}

TEST(PropertyListTest, KeysOfEqualHashAreBounded) {
  EXPECT_TRUE(IsList(KeysOfEqualHash(2000)));
  EXPECT_FALSE(IsList(KeysOfEqualHash(2001)));
}

TEST(PropertyListTest, KeysWithEntitiesAreBounded) {
  for (const bool fits : {true, false}) {
    std::string items;
    for (int i = 0; i < (fits ? 990 : 1001); ++i) {
      items += "<key>&amp;" + std::to_string(i) + "</key><true/>";
    }
    EXPECT_EQ(fits, IsList(items));
  }
}

TEST(PropertyListTest, BytesThatEntitiesMoveAreBounded) {
  const auto fits = [](const std::string& text) {
    return IsList("<key>k</key><string>" + text + "</string>");
  };
  const std::string moved(16000000, 'x');
  EXPECT_TRUE(fits(Repeated("&lt;", 120) + moved));
  EXPECT_FALSE(fits(Repeated("&lt;", 140) + moved));
  EXPECT_TRUE(fits(moved + Repeated("&lt;", 140)));  // only what follows an entity is moved
}

TEST(LargePropertyListTest, XmlListHasAsManyValuesAsFitItsBoundOfMemory) {
  constexpr int kMost = PropertyList::kLargest / 32 - 3;  // beside the key and the containers
  for (const int values : {kMost, kMost + 1}) {
    EXPECT_EQ(values == kMost,
              IsList("<key>a</key><array>" + Repeated("<true/>", values) + "</array>"));
  }
}

TEST(LargePropertyListTest, ContainersOfAnXmlListCountInItsBoundOfMemory) {
  constexpr int kMost = PropertyList::kLargest / 32 - 3;  // as above
  for (const int values : {kMost - 1, kMost}) {
    EXPECT_EQ(values < kMost,
              IsList("<key>a</key><array>" + Repeated("<true/>", values) + "<array/></array>"));
  }
}

TEST(PropertyListTest, WideKeysOfABinaryListAreBounded) {
  for (const unsigned keys : {900U, 1001U}) {
    Binary binary;
    std::string references;
    for (unsigned i = 0; i < keys; ++i) {
      references += Binary::Number(i + 1, 2);
    }
    binary.Add("\xDF\x11" + Binary::Number(keys, 2) + references + references);
    for (unsigned i = 0; i < keys; ++i) {
      binary.Add("\x61" + Binary::Number(i + 1000, 2));
    }
    EXPECT_EQ(keys == 900, PropertyList::Parse(binary.List()).has_value());
  }
}

TEST(PropertyListTest, DepthsOfTheValuesOfABinaryListAreBounded) {
  for (const int values : {10000, 30000}) {  // about 2,500 deep
    Binary binary;
    binary.AddDictionary({1, 2});
    binary.Add("\x51k");
    for (unsigned i = 3; i < 2500; ++i) {
      binary.AddArray({i});
    }
    binary.Add("\xAF\x11" + Binary::Number(static_cast<unsigned>(values), 2) +
               Repeated(Binary::Number(2500, 2), values));
    binary.Add("\x09");
    EXPECT_EQ(values == 10000, PropertyList::Parse(binary.List()).has_value());
  }
}

// Removed one by one, in another order than the file's, 44,000 keys took 12 s.
TEST(PropertyListTest, KeysInAnyOrderAreRemovedInOnePass) {
  std::string items;
  PropertyList::Changes changes;
  for (int i = 80000; i > 0; --i) {
    const std::string key = std::to_string(i);
    items += "<key>" + key + "</key><true/>";
    changes[key] = std::nullopt;
  }
  auto list = PropertyList::Parse(Xml(items));
  ASSERT_TRUE(list);
  EXPECT_EQ(80000U, list->Values().size());
  list->Apply(changes);
  EXPECT_TRUE(list->Values().empty());
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
