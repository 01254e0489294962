// Property lists in XML: valid lists, their values, and the bytes that a change keeps. The tests
// check the bytes, and Python's plistlib checks the values that plistlib can read.

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>
#include <utility>

#include "PropertyList.h"
#include "TestFiles.h"

namespace {

std::string Xml(const std::string& items) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + items +
         "</dict></plist>";
}

bool IsList(const std::string& bytes) {
  return PropertyList::Parse(bytes).has_value();
}

std::string Repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

std::string Changed(const std::string& bytes, const PropertyList::Changes& changes) {
  auto list = PropertyList::Parse(bytes);
  if (!list) {
    return "no list";
  }
  list->Apply(changes);
  return list->Print();
}

// Values ----------------------------------------------------------------------------------------

/// Returns the value of the key "k" in a list with `value` for that key; an absent value if that is
/// no list.
PreferencesDomain::Value ValueIn(const std::string& value) {
  const auto list = PropertyList::Parse(Xml("<key>k</key>" + value));
  return list ? list->Values().at("k") : PreferencesDomain::Value();
}

bool IsNumber(const std::string& value, int number) {
  return ValueIn(value).number == number;
}

bool IsOther(const std::string& value) {
  const PreferencesDomain::Value found = ValueIn(value);
  return found.isPresent && !found.number && !found.text;
}

std::string TextIn(const std::string& value) {
  return ValueIn(value).text.value_or("(no text)");
}

TEST(PropertyListTest, IntegersOf32BitsAreNumbers) {
  const std::pair<std::string, int> numbers[] = {
      {"0", 0},      {"-1", -1},    {"2147483647", INT_MAX}, {"-2147483648", INT_MIN},
      {"+5", 5},     {"010", 10},   {" \n7\t", 7},           {"0x1F", 31},
      {"0Xff", 255}, {"0x1e3", 483}};
  for (const auto& [text, number] : numbers) {
    EXPECT_TRUE(IsNumber("<integer>" + text + "</integer>", number)) << text;
  }
}

TEST(PropertyListTest, OtherIntegersAreOfOtherType) {
  for (const std::string text :
       {"2147483648", "-2147483649", "4294967295", "18446744073709551615", "0xFFFFFFFF", "", " ",
        "12abc", "1 2", "-", "+-1", "--1", "0x", "0xG", "-0x1", "1.0", "1e3", "1_0", "infinity"}) {
    EXPECT_TRUE(IsOther("<integer>" + text + "</integer>")) << text;
  }
}

TEST(PropertyListTest, RealsAreNumbersOnlyWhenExact) {
  for (const std::string text : {"5", "5.0", " 0.5e1\n", "+5"}) {
    EXPECT_TRUE(IsNumber("<real>" + text + "</real>", 5)) << text;
  }
  EXPECT_TRUE(IsNumber("<real>-2147483648</real>", INT_MIN));
  EXPECT_TRUE(IsNumber("<real>2147483647</real>", INT_MAX));
  for (const std::string text : {"5.5", "2147483648", "-2147483649", "1e300", "nan", "+infinity",
                                 "", "x", "5,0", "0x5", "5 5"}) {
    EXPECT_TRUE(IsOther("<real>" + text + "</real>")) << text;
  }
}

TEST(PropertyListTest, OtherTypesAreOfOtherType) {
  for (const char* value :
       {"<true/>", "<date>2020-01-02T03:04:05Z</date>", "<data>AAEC</data>",
        "<array><integer>1</integer></array>", "<dict/>", "<unknown>1</unknown>",
        "<string>a<b/></string>", "<string>\xFF</string>"}) {
    EXPECT_TRUE(IsOther(value)) << value;
  }
}

TEST(PropertyListTest, TextIsReadAsXmlReadsIt) {
  const std::pair<std::string, std::string> texts[] = {
      {"<string/>", ""},
      {"<string> \t\n </string>", " \t\n "},
      {"<string>&lt;&gt;&amp;&apos;&quot;&#65;&#x42;&#xe9;&#x1F600;</string>",
       "<>&'\"AB\xC3\xA9\xF0\x9F\x98\x80"},
      {"<string>a\r\nb\rc&#13;</string>", "a\nb\nc\r"},
      {"<string>a<!-- b -->c<?d e?><![CDATA[&lt;]]></string>", "ac&lt;"}};
  for (const auto& [value, text] : texts) {
    EXPECT_EQ(text, TextIn(value)) << value;
  }
}

TEST(PropertyListTest, KeysAreReadAsXmlReadsThem) {
  const auto list = PropertyList::Parse(Xml("<key>a&amp;<![CDATA[<]]></key><integer>1</integer>"));
  EXPECT_EQ(1U, list->Values().count("a&<"));
}

TEST(PropertyListTest, EveryTextIsWrittenAndReadAgain) {
  PropertyList list;
  for (const char* text : {"", " ", "a&b<c>\"'\t\n", "]]>", "&amp;", "\x01\x1F\r\n",
                           "\xC3\xA9\xF0\x9F\x98\x80", "\xEF\xBF\xBF"}) {
    list.Apply({{text, text}});
    const auto again = PropertyList::Parse(list.Print());
    ASSERT_TRUE(again) << text;
    EXPECT_EQ(text, again->Values().at(text).text);
  }
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
                             "\xFF",
                             "\xC3",
                             "\xE2\x82",
                             "\xF0\x9F\x98",  // no first byte, then a truncated character
                             "\xC3z",
                             "\xE2\x82z",
                             "\xF0\x9Fz\x80",
                             "\xC3\x28",  // interrupted characters
                             "\xC0\x80",
                             "\xC1\xBF",
                             "\xE0\x9F\xBF",
                             "\xF0\x8F\xBF\xBF",  // overlong encodings
                             "\xED\xA0\x80",
                             "\xED\xBF\xBF",  // surrogates
                             "\xF4\x90\x80\x80",
                             "\xF8\x88\x80\x80\x80",
                             "\xFE\x80\x80\x80"};  // beyond the last code point
  for (const std::string text : bad) {
    EXPECT_FALSE(PropertyList::IsText(text)) << testing::PrintToString(text);
    EXPECT_FALSE(PropertyList::IsText("a" + text + "z")) << testing::PrintToString(text);
  }
  EXPECT_FALSE(PropertyList::IsText(std::string("a\0b", 3)));
}

// Changes ---------------------------------------------------------------------------------------

TEST(PropertyListTest, NewListIsWrittenOnSeparateLines) {
  PropertyList list;
  list.Apply({{"text", "a&b"}, {"number", -7}, {"absent", std::nullopt}});
  const std::string bytes = list.Print();
  EXPECT_EQ(bytes.substr(bytes.find("<dict>")),
            "<dict>\n\t<key>number</key>\n\t<integer>-7</integer>\n"
            "\t<key>text</key>\n\t<string>a&#38;b</string>\n</dict>\n</plist>\n");
}

TEST(PropertyListTest, ChangedKeyKeepsItsPlaceAndNewOnesAreTheLast) {
  EXPECT_EQ(Changed(Xml("<key>z</key><true/><key>a</key><real x='1'>2</real><key>m</key><true/>"),
                    {{"a", 1}, {"new", "x"}, {"z", std::nullopt}}),
            Xml("<key>a</key><integer>1</integer><key>m</key><true/>"
                "\n\t<key>new</key>\n\t<string>x</string>"));
}

TEST(PropertyListTest, UndoneChangesLeaveTheBytes) {
  const std::string bytes = Xml("\n\t<key>a</key>\n\t<true/>\n");
  std::string changed = bytes;
  for (int i = 0; i < 3; ++i) {
    changed = Changed(changed, {{"b", 1}, {"c", "x"}});
    changed = Changed(changed, {{"b", std::nullopt}, {"c", std::nullopt}});
  }
  EXPECT_EQ(bytes, changed);
}

TEST(PropertyListTest, FirstOfEqualKeysCountsAndAChangeRemovesTheOthers) {
  const std::string bytes = Xml(
      "<key>a</key><integer>1</integer><key>b</key><true/><key>a</key><!-- c --><string>2</string>"
      "<key>&#97;</key><integer>3</integer>");
  EXPECT_EQ(1, PropertyList::Parse(bytes)->Values().at("a").number);
  EXPECT_EQ(Changed(bytes, {{"a", 7}}), Xml("<key>a</key><integer>7</integer><key>b</key><true/>"));
  EXPECT_EQ(Changed(bytes, {{"a", std::nullopt}}), Xml("<key>b</key><true/>"));
  EXPECT_EQ(Changed(bytes, {{"b", std::nullopt}}).find("<key>b</key>"), std::string::npos);
}

TEST(PropertyListTest, ManyKeysAreRemovedInOnePass) {
  std::string items;
  PropertyList::Changes changes;
  for (int i = 40000; i > 0; --i) {
    const std::string key = std::to_string(i);
    items += "<key>" + key + "</key><true/>";
    changes[key] = std::nullopt;
  }
  EXPECT_EQ(Xml(items).replace(Xml(items).find("<dict>"), items.size() + 13, "<dict/>"),
            Changed(Xml(items), changes));
}

// Parts that stay unchanged -----------------------------------------------------------------------

/// Returns whether a change of another key keeps `value`: its bytes and, if plistlib can read the
/// list, its value. `head` precedes the root element.
testing::AssertionResult Stays(const std::string& value, const std::string& head = "",
                               bool isReadByPython = true) {
  const std::string item = "<key>theirs</key>" + value;
  const std::string before = head + "<plist><dict>" + item + "</dict></plist>";
  const std::string after = Changed(before, {{"mine", 1}});
  if (after != head + "<plist><dict>" + item +
                   "\n\t<key>mine</key>\n\t<integer>1</integer></dict></plist>") {
    return testing::AssertionFailure() << "becomes " << after;
  }
  const ScopedDirectory directory;
  WriteFile(directory / "before", before);
  WriteFile(directory / "after", after);
  const std::string judge =
      "cd '" + directory / "" +
      "' && python3 -c \"import plistlib\n"
      "before, after = (plistlib.load(open(name, 'rb')) for name in ('before', 'after'))\n"
      "assert after.pop('mine') == 1 and repr(before) == repr(after), after\" 2>error";
  return (std::system(judge.c_str()) == 0) == isReadByPython
             ? testing::AssertionSuccess()
             : testing::AssertionFailure() << ReadFile(directory / "error");
}

TEST(PropertyListTest, IntegerBeyond64BitsStays) {
  EXPECT_TRUE(Stays("<integer>123456789012345678901234567890</integer>"));
}

TEST(PropertyListTest, HexadecimalIntegerStays) {
  EXPECT_TRUE(Stays("<integer>0x1F</integer>"));
}

TEST(PropertyListTest, RealStaysToTheLastDigit) {
  EXPECT_TRUE(Stays("<real>0.10000000000000000000001</real>"));
  EXPECT_TRUE(Stays("<real>-0.0</real>"));
}

TEST(PropertyListTest, DateWithAFractionStays) {
  EXPECT_TRUE(Stays("<date>2020-01-02T03:04:05.678Z</date>", "", false));
}

TEST(PropertyListTest, CDataStays) {
  EXPECT_TRUE(Stays("<string>a<![CDATA[<b> & ]] > \"c\"]]>d</string>"));
}

TEST(PropertyListTest, CommentStays) {
  EXPECT_TRUE(Stays("<!-- a - <b> --><array><!----><string>b<!-- c -->d</string></array>"));
}

TEST(PropertyListTest, StringOfWhitespaceStays) {
  EXPECT_TRUE(Stays("<array><string> \t\n </string>\n<string> </string></array>"));
}

TEST(PropertyListTest, LineEndsStay) {
  EXPECT_TRUE(Stays("<array>\r\n<string>a\r\nb\rc&#13;</string>\r</array>"));
}

TEST(PropertyListTest, ReferencesStay) {
  EXPECT_TRUE(Stays("<string>&lt;&gt;&amp;&apos;&quot;&#65;&#x42;'\"></string>"));
}

TEST(PropertyListTest, ProcessingInstructionStays) {
  EXPECT_TRUE(Stays("<?a?><array><?b c=\"d\" > ?></array>", "<?xml version=\"1.0\"?><?e f?>"));
}

TEST(PropertyListTest, DocumentTypeWithAnInternalSubsetStays) {
  const std::string type =
      "<!DOCTYPE plist [<!ELEMENT x (y|z)*> <!ATTLIST x a CDATA \"]>\"> <!-- ] -->]>";
  EXPECT_TRUE(Stays("<true/>", "<?xml version=\"1.0\"?>\n" + type + "\n"));
}

TEST(PropertyListTest, EntityOfTheDocumentStays) {
  EXPECT_TRUE(Stays("<string>&e;</string>", "<!DOCTYPE plist [<!ENTITY e \"f\">]>", false));
}

TEST(PropertyListTest, EveryOtherTypeStays) {
  EXPECT_TRUE(
      Stays("<array><true/><false/><data>\n\tQUJD\n\t</data><date>2020-01-02T03:04:05Z</date>"
            "<dict><key>a</key><string>\xC3\xA9\xF0\x9F\x98\x80</string><key>a</key><array/>"
            "<key>CF$UID</key><integer>5</integer></dict></array>"));
}

TEST(PropertyListTest, UnknownElementStays) {
  EXPECT_TRUE(Stays("<null a=\"b &amp; 'c'\">d<e>f</e></null>", "", false));
}

TEST(PropertyListTest, ByteOrderMarkAndSpellingOfTagsMayChange) {
  EXPECT_EQ(
      Changed("\xEF\xBB\xBF <?xml version='1.0'?>\n<plist  a = 'b' ><dict ></dict ></plist>\n",
              {{"a", std::nullopt}}),
      " <?xml version=\"1.0\"?>\n<plist a=\"b\"><dict/></plist>\n");
}

// Documents that are no list ----------------------------------------------------------------------

TEST(PropertyListTest, BytesThatAreNotXmlAreNoList) {
  for (const std::string& bytes : {std::string(), std::string("x"), std::string("<plist>"),
                                   std::string(3, '\0'), Xml("<key>k</key><array></dict>"),
                                   Xml("</dict>"), Xml("<!-- "), Xml("<key"), Xml("<![CDATA[")}) {
    EXPECT_FALSE(IsList(bytes)) << bytes;
  }
}

TEST(PropertyListTest, TruncatedListIsNoList) {
  const std::string xml = Xml("<key>k</key><array><string>x</string><integer>1</integer></array>");
  ASSERT_TRUE(IsList(xml));
  for (std::size_t length = 0; length < xml.size(); ++length) {
    EXPECT_FALSE(IsList(xml.substr(0, length))) << length;
  }
}

TEST(PropertyListTest, BinaryListIsNoList) {
  EXPECT_FALSE(IsList("bplist00\xD0\x08" + std::string(6, '\0') + "\x01\x01" +
                      std::string(7, '\0') + "\x01" + std::string(15, '\0') + "\x09"));
}

TEST(PropertyListTest, OtherEncodingThanUtf8IsNoList) {
  const std::string list = "<plist><dict/></plist>";
  for (const char* encoding : {"", " encoding=\"UTF-8\"", " encoding='utf-8'"}) {
    EXPECT_TRUE(IsList("<?xml version=\"1.0\"" + std::string(encoding) + "?>" + list)) << encoding;
  }
  EXPECT_FALSE(IsList("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" + list));
  std::string big;
  std::string little;
  for (const char character : list) {
    (big += '\0') += character;
    (little += character) += '\0';
  }
  for (const std::string& bytes : {big, "\xFE\xFF" + big, little, "\xFF\xFE" + little}) {
    EXPECT_FALSE(IsList(bytes));
  }
}

TEST(PropertyListTest, ListWithAZeroByteIsNoList) {
  const std::string list = Xml("<key>k</key><string>ab</string><!-- c --><key>d</key><true/>");
  for (std::size_t place = 0; place <= list.length(); ++place) {
    std::string damaged = list;
    damaged.insert(place, 1, '\0');
    EXPECT_FALSE(IsList(damaged)) << place;
  }
}

TEST(PropertyListTest, OnlyOnePlistWithOneDictionaryIsAList) {
  for (const std::string bytes :
       {"<plist><array/></plist>", "<plist/>", "<dict/>", "<plist><dict/><dict/></plist>",
        "<plist><dict/></plist><plist><dict/></plist>", "<plist><dict/>x</plist>",
        "<plist><dict/></plist>x", "x<plist><dict/></plist>", "<plist><dict/><![CDATA[]]></plist>",
        "<a><plist><dict/></plist></a>"}) {
    EXPECT_FALSE(IsList(bytes)) << bytes;
  }
  EXPECT_TRUE(IsList(" <!-- a --><plist><?b?> <dict/><!-- c --></plist>\n<!-- d -->"));
}

TEST(PropertyListTest, KeysAndValuesAlternateInAList) {
  for (const std::string items :
       {"<key>a</key>", "<key>a</key><key>b</key>", "<key>a</key><key>b</key><true/>", "<true/>",
        "<key>a</key><true/><true/>", "<key>a</key>b<true/>", "<key>a</key><true/>b",
        "<key>a<b/></key><true/>", "<key>\xFF</key><true/>", "<key>&#xD800;</key><true/>"}) {
    EXPECT_FALSE(IsList(Xml(items))) << items;
  }
}

TEST(PropertyListTest, ListThatWouldBeWrittenDifferentlyIsNoList) {
  EXPECT_FALSE(IsList(Xml("<key>a</key><array b='\"'/>")));
  EXPECT_FALSE(IsList(Xml("<!-- a -- b -->")));
  EXPECT_FALSE(IsList(Xml("<!-- a --->")));
}

TEST(PropertyListTest, ListOfMoreThanAHundredLevelsIsNoList) {
  const auto nested = [](int depth) {  // levels below the dictionary
    return Xml("<key>a</key>" + Repeated("<array>", depth - 1) + "<string>text</string>" +
               Repeated("</array>", depth - 1));
  };
  EXPECT_TRUE(IsList(nested(99)));
  EXPECT_FALSE(IsList(nested(100)));
  EXPECT_FALSE(IsList(nested(70000)));  // a recursive removal would overflow the stack
  EXPECT_FALSE(IsList(Repeated("<a>", 300000)));
  EXPECT_EQ(Changed(nested(99), {{"a", std::nullopt}}).find("<array>"), std::string::npos);
}

}  // namespace
