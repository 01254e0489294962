// The back end of a Mac where the system refuses a call, and the modes of the double. Runs in a
// chroot.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "AnotherProcess.h"
#include "Bundle.h"
#include "CoreFoundation/Object.h"
#include "InstallRecord.h"
#include "OSUtils.h"
#include "PreferencesDomain.h"

namespace {

const char kIdentifier[] = "com.example.BackEndTest.plist";
const char kFile[] = "/Library/Preferences/com.example.BackEndTest.plist.plist";

const char* program = nullptr;  // the path of this program

/// Sets the mode of the double as long as the object lives.
class ScopedMode {
 public:
  explicit ScopedMode(const std::string& mode) { setenv("COREFOUNDATION_DOUBLE", mode.c_str(), 1); }
  ~ScopedMode() { setenv("COREFOUNDATION_DOUBLE", "stock", 1); }
  ScopedMode(const ScopedMode&) = delete;
  ScopedMode& operator=(const ScopedMode&) = delete;
};

PreferencesDomain::Value ValueOf(const PreferencesDomain& domain, const std::string& key) {
  std::vector<PreferencesDomain::Value> values;
  domain.Read({key}, &values);
  return values.at(0);
}

/// Returns the number under "key" that another process sees, or -1 for none.
std::string SeenElsewhere() {
  return OutputOfProcess(program, {"print"});
}

class AppleBackEnd : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove_all("/Library");
    ASSERT_TRUE(domain_.Flush());
    ASSERT_FALSE(domain_.RemoveAll());
  }

  void Store(int number) {
    domain_.SetNumber("key", number);
    ASSERT_TRUE(domain_.Flush());
  }

  /// Returns the number that the back end reads from the XML `element`.
  std::optional<int> NumberFrom(const std::string& element) {
    std::filesystem::create_directories("/Library/Preferences");
    std::ofstream(kFile) << "<plist version=\"1.0\"><dict><key>key</key>" << element
                         << "</dict></plist>";
    EXPECT_TRUE(domain_.Flush());
    return Read("key").number;
  }

  static std::string FileContent() {
    std::ifstream stream(kFile);
    return std::string(std::istreambuf_iterator<char>(stream), {});
  }

  PreferencesDomain::Value Read(const std::string& key) { return ValueOf(domain_, key); }

  PreferencesDomain domain_{kIdentifier};
};

// Without rights --------------------------------------------------------------------------------

TEST_F(AppleBackEnd, FlushWithoutRightsIsFalseAndChangesStayPending) {
  Store(1);
  {
    const ScopedMode mode("unprivileged");
    domain_.SetNumber("key", 2);
    EXPECT_FALSE(domain_.Flush());
    EXPECT_EQ(2, Read("key").number);
    EXPECT_EQ("1", SeenElsewhere());
  }
  EXPECT_TRUE(domain_.Flush());
  EXPECT_EQ("2", SeenElsewhere());
}

// The result of the system's call is the result, even without a value to write.
TEST_F(AppleBackEnd, RestoringNothingWithoutRightsIsFalse) {
  const ScopedMode mode("unprivileged");
  WebRegInfo info;
  EXPECT_FALSE(OSUtils::MakeFreshRegistry(&info));
}

TEST_F(AppleBackEnd, RecordIsReadableWithoutTheRightToWriteIt) {
  ASSERT_TRUE(OSUtils::RegisterUpdateID(7));
  const ScopedMode mode("unprivileged");
  ASSERT_FALSE(domain_.Flush());
  EXPECT_EQ(7, ReadRecord("").value().values.updateId);
}

TEST_F(AppleBackEnd, RecordOfAnotherHostIsNotReadable) {
  ASSERT_TRUE(OSUtils::RegisterUpdateID(7));
  errno = 0;
  EXPECT_FALSE(ReadRecord("/other host"));
  EXPECT_EQ(errno, ENOTSUP);
}

TEST_F(AppleBackEnd, RecordIsInTheFileOfItsWholeIdentifier) {
  ASSERT_TRUE(OSUtils::RegisterUpdateID(7));
  EXPECT_TRUE(std::filesystem::exists(
      "/Library/Preferences/com.veltrane.orlisk.2017.WebResource.plist.plist"));
}

// Where CoreFoundation fails --------------------------------------------------------------------

class AppleBackEndWithout : public AppleBackEnd, public testing::WithParamInterface<const char*> {};

TEST_P(AppleBackEndWithout, NothingIsFoundAndNoResultIsMadeUp) {
  Store(1);
  domain_.SetText("text", "x");
  ASSERT_TRUE(domain_.Flush());
  {
    const ScopedMode mode(GetParam());
    char buffer[1024] = "before";
    EXPECT_EQ(Read("key").number.value_or(1), 1);
    EXPECT_EQ(Read("text").text.value_or("x"), "x");
    domain_.SetNumber("key", 1);
    domain_.SetText("text", "x");
    domain_.Flush();
    if (Bundle::GetResourcesDirectory(buffer, sizeof buffer)) {
      EXPECT_NE(std::string::npos, std::string(buffer).find("/Contents/Resources"));
    }
  }
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("1", SeenElsewhere());
}

INSTANTIATE_TEST_SUITE_P(
    Functions, AppleBackEndWithout,
    testing::Values("failing", "failing CFStringCreateWithCStringNoCopy",
                    "failing CFStringGetCString", "failing CFNumberCreate",
                    "failing CFNumberGetValue", "failing CFPreferencesCopyValue",
                    "failing CFPreferencesCopyKeyList", "failing CFPreferencesSynchronize",
                    "failing CFBundleGetMainBundle", "failing CFBundleCopyResourcesDirectoryURL",
                    "failing CFURLGetFileSystemRepresentation"));

TEST_F(AppleBackEnd, FailuresShowInTheResults) {
  Store(1);
  domain_.SetText("text", "x");
  ASSERT_TRUE(domain_.Flush());
  char buffer[1024];
  const auto fails = [](const char* function, auto call) {
    const ScopedMode mode(std::string("failing ") + function);
    return !call();
  };
  const auto flush = [this] { return domain_.Flush(); };
  const auto number = [this] { return Read("key").number.has_value(); };
  const auto text = [this] { return Read("text").text.has_value(); };
  const auto clear = [this] { return domain_.RemoveAll(); };
  const auto resources = [&] { return Bundle::GetResourcesDirectory(buffer, sizeof buffer); };
  EXPECT_TRUE(fails("CFPreferencesSynchronize", flush));
  EXPECT_TRUE(fails("CFStringCreateWithCStringNoCopy", flush));
  EXPECT_TRUE(fails("CFPreferencesCopyValue", number));
  EXPECT_TRUE(fails("CFNumberGetValue", number));
  EXPECT_TRUE(fails("CFNumberCreate", number));
  EXPECT_TRUE(fails("CFStringGetCString", text));
  EXPECT_TRUE(fails("CFPreferencesCopyKeyList", clear));
  EXPECT_TRUE(fails("CFBundleGetMainBundle", resources));
  EXPECT_TRUE(fails("CFBundleCopyResourcesDirectoryURL", resources));
  EXPECT_TRUE(fails("CFURLGetFileSystemRepresentation", resources));
  EXPECT_TRUE(flush() && number() && text() && resources() && clear());
}

TEST_F(AppleBackEnd, EveryObjectIsReleased) {
  const auto use = [this] {
    char buffer[1024];
    Store(1);
    domain_.SetText("text", "x");
    Read("text");
    Read("key");
    domain_.Remove("text");
    domain_.RemoveAll();
    domain_.Flush();
    Bundle::GetResourcesDirectory(buffer, sizeof buffer);
  };
  use();
  const std::size_t before = CountLiveObjects();
  use();
  EXPECT_EQ(before, CountLiveObjects());
}

// Clearing --------------------------------------------------------------------------------------

TEST_F(AppleBackEnd, KeyWithoutAUtf8FormIsClearedLikeOthers) {
  const std::string loneSurrogate = "\xED\xA0\x80";
  EXPECT_EQ(7, NumberFrom("<integer>7</integer><key>" + loneSurrogate + "</key><true/>"));
  EXPECT_TRUE(domain_.RemoveAll());
  EXPECT_TRUE(domain_.Flush());
  EXPECT_EQ(std::string::npos, FileContent().find("<key>"));
  EXPECT_FALSE(domain_.RemoveAll());
}

TEST_F(AppleBackEnd, KeyOutsideAsciiIsRemovedWithTheOthers) {
  std::filesystem::create_directories("/Library/Preferences");
  std::ofstream(kFile)
      << "<plist version=\"1.0\"><dict><key>key</key><integer>1</integer>"
         "<key>schl\xC3\xBCssel e\xCC\x81</key><integer>2</integer></dict></plist>";
  ASSERT_TRUE(domain_.Flush());
  ASSERT_EQ(Read("schl\xC3\xBCssel e\xCC\x81").number, 2);
  EXPECT_TRUE(domain_.RemoveAll());
  ASSERT_TRUE(domain_.Flush());
  EXPECT_FALSE(Read("schl\xC3\xBCssel e\xCC\x81").isPresent);
  EXPECT_FALSE(Read("key").isPresent);
}

// Numbers ---------------------------------------------------------------------------------------

TEST_F(AppleBackEnd, NumberThatTheConversionWrapsIsAbsent) {
  EXPECT_EQ(std::nullopt, NumberFrom("<integer>18446744073709551615</integer>"));
  EXPECT_EQ(std::nullopt, NumberFrom("<integer>18446744071562067968</integer>"));
  EXPECT_EQ(-1, NumberFrom("<integer>-1</integer>"));
}

TEST_F(AppleBackEnd, NumberThatIsNotWholeIsAbsent) {
  EXPECT_EQ(std::nullopt, NumberFrom("<real>1.5</real>"));
  EXPECT_EQ(2, NumberFrom("<real>2.0</real>"));
}

TEST_F(AppleBackEnd, BooleanIsNotANumber) {
  EXPECT_EQ(std::nullopt, NumberFrom("<true/>"));
}

// Bundles ---------------------------------------------------------------------------------------

TEST_F(AppleBackEnd, ResourcesPathIsAbsoluteAndFitsWithItsTerminatingZero) {
  std::filesystem::create_directories("/X.app/Contents/MacOS");
  std::filesystem::copy_file(program, "/X.app/Contents/MacOS/X",
                             std::filesystem::copy_options::overwrite_existing);
  const std::string expected = "/X.app/Contents/Resources";
  const auto resources = [](std::size_t size) {
    return OutputOfProcess("/X.app/Contents/MacOS/X", {"resources", std::to_string(size)});
  };
  EXPECT_EQ(expected, resources(1024));
  EXPECT_EQ(expected, resources(expected.length() + 1));
  EXPECT_EQ("none", resources(expected.length()));
  EXPECT_EQ("none", resources(1));
  EXPECT_EQ("none", resources(0));
}

TEST_F(AppleBackEnd, ResourcesPathKeepsTheBytesOfACombiningCharacter) {
  const std::string bundle = "/Cafe\xCC\x81.app/Contents";
  std::filesystem::create_directories(bundle + "/MacOS");
  std::filesystem::copy_file(program, bundle + "/MacOS/X",
                             std::filesystem::copy_options::overwrite_existing);
  EXPECT_EQ(OutputOfProcess((bundle + "/MacOS/X").c_str(), {"resources", "1024"}),
            bundle + "/Resources");
}

// The double ------------------------------------------------------------------------------------

TEST_F(AppleBackEnd, ModesDifferInWhenOthersSeeAChange) {
  domain_.SetNumber("key", 1);
  EXPECT_EQ("-1", SeenElsewhere());
  ASSERT_TRUE(domain_.Flush());
  EXPECT_EQ("1", SeenElsewhere());
  const ScopedMode mode("eager");
  domain_.SetNumber("key", 2);
  EXPECT_EQ("2", SeenElsewhere());
}

TEST_F(AppleBackEnd, ModesDifferInWhenTheFileIsWritten) {
  const ScopedMode mode("asynchronous");
  Store(1);
  EXPECT_FALSE(std::filesystem::exists(kFile));
  EXPECT_EQ("1", SeenElsewhere());
  EXPECT_TRUE(std::filesystem::exists(kFile));
}

using AppleBackEndDeathTest = AppleBackEnd;

TEST_F(AppleBackEndDeathTest, MisuseEndsTheProcess) {
  const CFStringRef text = CFStringCreateWithCString(nullptr, "x", kCFStringEncodingUTF8);
  CFRelease(text);
  EXPECT_DEATH(CFRelease(text), "an object that was released");
  EXPECT_DEATH(CFRelease(nullptr), "a null object");
  const CFNumberRef number = CFNumberCreate(nullptr, kCFNumberIntType, "four");
  EXPECT_DEATH(CFStringGetLength(reinterpret_cast<CFStringRef>(number)), "of another type");
  CFRelease(number);
}

/// The other process.
int Obey(const std::vector<std::string>& arguments) {
  if (arguments.at(0) == "print") {
    std::printf("%d", ValueOf(PreferencesDomain(kIdentifier), "key").number.value_or(-1));
    return 0;
  }
  std::string buffer(2048, '-');
  const bool found = Bundle::GetResourcesDirectory(buffer.data(), std::stoul(arguments.at(1)));
  std::printf("%s", found ? buffer.c_str() : "none");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  program = argv[0];
  return argc > 1 ? Obey({argv + 1, argv + argc}) : RUN_ALL_TESTS();
}
