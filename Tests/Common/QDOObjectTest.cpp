#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <type_traits>

#include "AllocationProbe.h"
#include "QDOObject.h"
#include "QDOObjectProbe.h"
#include "Rendering.h"

namespace {

constexpr long long kInt64Max = std::numeric_limits<long long>::max();
constexpr long long kInt64Min = std::numeric_limits<long long>::min();
constexpr std::uint64_t kUInt64Max = std::numeric_limits<std::uint64_t>::max();

QDOObject::Type TypeNumber(std::uint32_t number) {
  return static_cast<QDOObject::Type>(number);
}

/// Returns the value as a signed 32-bit integer, or the exception of the getter.
std::string AsInt32(const QDOObject& value) {
  std::string result;
  const std::string thrown = Thrown([&] { result = std::to_string(value.getQDOInt32()); });
  EXPECT_EQ(value.IsInt32(), thrown == "nothing");
  return thrown == "nothing" ? result : thrown;
}

/// Returns the value as an unsigned 32-bit integer, or the exception of the getter.
std::string AsUInt32(const QDOObject& value) {
  std::string result;
  const std::string thrown = Thrown([&] { result = std::to_string(value.getQDOUInt32()); });
  EXPECT_EQ(value.IsUInt(), thrown == "nothing");
  return thrown == "nothing" ? result : thrown;
}

std::uint32_t ProxyFrom(const QDOObject& source) {
  QDOObject proxy;
  return proxy.setProxyId(source).getProxyIdentifier();
}

}  // namespace

static_assert(std::is_same_v<std::underlying_type_t<QDOObject::Type>, std::uint32_t>);
static_assert(std::has_virtual_destructor_v<QDOObject>);
static_assert(std::is_nothrow_default_constructible_v<QDOObject>);
static_assert(std::is_nothrow_move_constructible_v<QDOObject>);
static_assert(std::is_nothrow_move_assignable_v<QDOObject>);
static_assert(std::is_nothrow_destructible_v<QDOObject>);
static_assert(noexcept(std::declval<QDOObject&>().destroy()));

/// Tells whether `set()` takes an argument of this type.
template <typename Argument, typename = void>
constexpr bool kSettable = false;
template <typename Argument>
constexpr bool kSettable<
    Argument, std::void_t<decltype(std::declval<QDOObject&>().set(std::declval<Argument>()))>> =
    true;

static_assert(kSettable<int> && kSettable<long> && kSettable<long long> && kSettable<short>);
static_assert(kSettable<std::int32_t> && kSettable<std::uint32_t> && kSettable<std::int64_t>);
static_assert(!kSettable<bool>, "a boolean is no integer");
static_assert(!kSettable<std::uint64_t>, "not every value fits");
static_assert(!kSettable<const void*>, "a pointer is no boolean");

TEST(QDOObjectTest, TypeNumbersAreFixed) {
  const QDOObject::Type types[] = {QDOObject::Undefined, QDOObject::Bool,   QDOObject::UInt32,
                                   QDOObject::Int32,     QDOObject::Int64,  QDOObject::UInt64,
                                   QDOObject::String,    QDOObject::Double, QDOObject::Vector,
                                   QDOObject::Map,       QDOObject::Handle, QDOObject::Set,
                                   QDOObject::ProxyId,   QDOObject::Null};
  std::uint32_t number = 0;
  for (const QDOObject::Type type : types) {
    EXPECT_EQ(type, number++);
  }
}

TEST(QDOObjectTest, NewValueIsUndefinedAndHasNothingToGet) {
  const QDOObject value;
  EXPECT_EQ(value.getType(), QDOObject::Undefined);
  EXPECT_EQ(Thrown([&] { value.getBool(); }), "QDOException 3");
  EXPECT_EQ(AsInt32(value), "QDOException 3");
  EXPECT_EQ(AsUInt32(value), "QDOException 3");
  EXPECT_EQ(Thrown([&] { value.getProxyIdentifier(); }), "QDOException 3");
}

// Setters.

TEST(QDOObjectTest, SettersSetTheirTypeAndReturnTheValue) {
  QDOObject value;
  EXPECT_EQ(&value.set(7LL), &value);
  EXPECT_EQ(Text(value), "7");
  EXPECT_EQ(&value.set(0.5), &value);
  EXPECT_EQ(Text(value), "0.5d");
  EXPECT_EQ(&value.set("text"), &value);
  EXPECT_EQ(Text(value), "\"text\"");
  EXPECT_EQ(&value.set(QDOObject::Null), &value);
  EXPECT_EQ(Text(value), "null");
  EXPECT_EQ(&value.set(Make(3LL)), &value);
  EXPECT_EQ(Text(value), "3");
  EXPECT_EQ(&value.setProxyId(Make(4LL)), &value);
  EXPECT_EQ(Text(value), "#4");
  value.setString("other");
  EXPECT_EQ(Text(value), "\"other\"");
}

TEST(QDOObjectTest, Int64KeepsAll64Bits) {
  for (const long long number : {0LL, -1LL, kInt64Max, kInt64Min, 0x0123456789ABCDEFLL}) {
    EXPECT_EQ(Make(number).getInt64(), number);
  }
}

TEST(QDOObjectTest, EveryIntegerTypeThatFitsGivesInt64) {
  EXPECT_EQ(Make(1).getInt64(), 1);
  EXPECT_EQ(Make(0).getInt64(), 0);  // not a null pointer
  EXPECT_EQ(Make(-7L).getInt64(), -7);
  EXPECT_EQ(Make(4294967295U).getInt64(), 4294967295);
  EXPECT_EQ(Make(static_cast<short>(-3)).getInt64(), -3);
  QDOObject copied;
  copied.set(Make(-5).getQDOInt32());
  EXPECT_EQ(Text(copied), "-5");
  copied.set(Make(5).getQDOUInt32());
  EXPECT_EQ(Text(copied), "5");
  copied.set(Make(kInt64Min).getInt64());
  EXPECT_EQ(copied.getInt64(), kInt64Min);
}

TEST(QDOObjectTest, DoubleKeepsAll64Bits) {
  EXPECT_EQ(Make(0.1).getDouble(), 0.1);
  EXPECT_TRUE(std::signbit(Make(-0.0).getDouble()));
  EXPECT_TRUE(std::isnan(Make(std::nan("")).getDouble()));
  EXPECT_EQ(Make(-HUGE_VAL).getDouble(), -HUGE_VAL);
}

TEST(QDOObjectTest, StringIsCopiedUpToTheFirstZeroByte) {
  char text[] = "ab\0cd";
  const QDOObject value = Make(static_cast<const char*>(text));
  text[0] = 'x';
  EXPECT_EQ(Text(value), "\"ab\"");
  EXPECT_EQ(Text(Make("")), "\"\"");
}

TEST(QDOObjectTest, NullTextThrowsCode2AndLeavesTheEarlierValue) {
  for (QDOObject& value : OneOfEachKind()) {
    const QDOObject::Type type = value.getType();
    const char* none = nullptr;
    EXPECT_EQ(Thrown([&] { value.set(none); }, &value), "QDOException 2");
    EXPECT_EQ(value.getType(), type);
  }
  QDOObject text = Make("kept");
  EXPECT_EQ(Thrown([&] { text.set(static_cast<const char*>(nullptr)); }), "QDOException 2");
  EXPECT_EQ(Text(text), "\"kept\"");
}

TEST(QDOObjectTest, SetTypeGivesTheInitialValueOfEachKind) {
  for (const QDOObject& earlier : OneOfEachKind()) {  // for every type of the old value
    auto initial = [&, value = QDOObject()](QDOObject::Type type) mutable -> QDOObject& {
      Thrown([&] { value.set(earlier); });  // an empty Handle gives Undefined
      value.set(type);
      EXPECT_EQ(value.getType(), type);
      return value;
    };
    EXPECT_EQ(Text(initial(QDOObject::Undefined)), "undefined");
    EXPECT_FALSE(initial(QDOObject::Bool).getBool());
    EXPECT_EQ(AsUInt32(initial(QDOObject::UInt32)), "0");
    EXPECT_EQ(AsInt32(initial(QDOObject::Int32)), "0");
    EXPECT_EQ(initial(QDOObject::Int64).getInt64(), 0);
    EXPECT_EQ(AsUInt32(initial(QDOObject::UInt64)), "0");
    EXPECT_EQ(initial(QDOObject::String).getString(), "");
    EXPECT_EQ(Text(initial(QDOObject::Double)), "0d");
    EXPECT_TRUE(initial(QDOObject::Vector).getVector().empty());
    EXPECT_TRUE(initial(QDOObject::Map).getMap().empty());
    QDOObject& handle = initial(QDOObject::Handle);
    EXPECT_EQ(Thrown([&] { QDOObject copy(handle); }), "QDOObjectException 2 about no value");
    EXPECT_EQ(Text(QDOObject(initial(QDOObject::Set))), "Set");
    EXPECT_EQ(initial(QDOObject::ProxyId).getProxyIdentifier(), 0U);
    EXPECT_EQ(Text(initial(QDOObject::Null)), "null");
  }
}

TEST(QDOObjectTest, SetTypeAbove13GivesUndefined) {
  for (const std::uint32_t number : {14U, 15U, 256U, 0x80000000U, 0xFFFFFFFFU}) {
    QDOObject value = Make("released");
    EXPECT_EQ(&value.set(TypeNumber(number)), &value);
    EXPECT_EQ(value.getType(), QDOObject::Undefined) << number;
  }
}

TEST(QDOObjectTest, MakeBoolHoldsItsArgument) {
  EXPECT_TRUE(QDOObject::makeBool(true).getBool());
  EXPECT_FALSE(QDOObject::makeBool(false).getBool());
  EXPECT_EQ(QDOObject::makeBool(false).getType(), QDOObject::Bool);
}

TEST(QDOObjectTest, EverySetterReleasesTheOldContent) {
  const auto element = std::make_shared<int>(1);
  const auto owners = [&](auto set) {
    QDOObject value = MakeHandle(element);
    EXPECT_EQ(element.use_count(), 2);
    set(value);
    return element.use_count();
  };
  EXPECT_EQ(owners([](QDOObject& value) { value.set(1LL); }), 1);
  EXPECT_EQ(owners([](QDOObject& value) { value.set(1.5); }), 1);
  EXPECT_EQ(owners([](QDOObject& value) { value.set("text"); }), 1);
  EXPECT_EQ(owners([](QDOObject& value) { value.setString("text"); }), 1);
  EXPECT_EQ(owners([](QDOObject& value) { value.set(Make("text")); }), 1);
  EXPECT_EQ(owners([](QDOObject& value) { value = QDOObject(); }), 1);
  EXPECT_EQ(owners([](QDOObject& value) { value.setProxyId(QDOObject()); }), 1);
  EXPECT_EQ(owners([](QDOObject& value) { value.createVector(); }), 1);
  EXPECT_EQ(owners([](QDOObject& value) { value.createMap(); }), 1);
  EXPECT_EQ(owners([](QDOObject& value) { value.createSet(); }), 1);
  EXPECT_EQ(owners([](QDOObject& value) { value.destroy(); }), 1);
  for (std::uint32_t number = 0; number < 15; ++number) {
    EXPECT_EQ(owners([&](QDOObject& value) { value.set(TypeNumber(number)); }), 1) << number;
  }
  EXPECT_EQ(owners([](QDOObject&) {}), 2);
  EXPECT_EQ(element.use_count(), 1);  // the reference of the destructor
}

TEST(QDOObjectTest, ArgumentMayBePartOfTheOldContent) {
  auto number = std::make_shared<long long>(7);
  const long long& inside = *number;
  QDOObject value = MakeHandle(std::move(number));
  EXPECT_EQ(Text(value.set(inside)), "7");
}

TEST(QDOObjectTest, StringMayBeSetToItsOwnText) {
  QDOObject value = Make("a text longer than the small ones");
  value.setString(value.getString().c_str());
  EXPECT_EQ(Text(value), "\"a text longer than the small ones\"");
  value.set(value.getString().c_str() + 7);
  EXPECT_EQ(Text(value), "\"longer than the small ones\"");
}

// Copies.

TEST(QDOObjectTest, CopiesOfScalarsAreEqualAndIndependent) {
  for (const QDOObject& original :
       {Make(kInt64Min), Make(-0.5), QDOObject::makeBool(true), Make(QDOObject::Null)}) {
    QDOObject copy = original;
    EXPECT_EQ(Text(copy), Text(original));
    copy.set(1LL);
    EXPECT_NE(Text(copy), Text(original));
  }
  EXPECT_EQ(AsUInt32(QDOObject(MakeRaw(QDOObject::UInt32, 3000000000U))), "3000000000");
  EXPECT_EQ(AsInt32(QDOObject(MakeRaw(QDOObject::Int32, 0xFFFFFFFFU))), "-1");
  EXPECT_EQ(QDOObject(MakeRaw(QDOObject::ProxyId, 9)).getProxyIdentifier(), 9U);
}

TEST(QDOObjectTest, CopyIsCompleteForEveryTypeOfTheOldValue) {
  for (QDOObject& value : OneOfEachKind()) {
    EXPECT_FALSE(value.set(QDOObject::makeBool(false)).getBool());
  }
  for (QDOObject& value : OneOfEachKind()) {
    EXPECT_EQ(AsUInt32(value.set(MakeRaw(QDOObject::UInt32, 1))), "1");
  }
  for (QDOObject& value : OneOfEachKind()) {
    EXPECT_EQ(AsInt32(value.set(MakeRaw(QDOObject::Int32, 1))), "1");
  }
}

TEST(QDOObjectTest, TypeAbove13DoesNotSurviveACopy) {
  for (const std::uint32_t number : {14U, 15U, 256U, 0x80000000U, 0xFFFFFFFFU}) {
    const QDOObject source = MakeRaw(TypeNumber(number), ~0ULL);
    EXPECT_EQ(QDOObject(source).getType(), QDOObject::Undefined) << number;
    for (QDOObject& target : OneOfEachKind()) {
      EXPECT_EQ(&target.set(source), &target);
      EXPECT_EQ(target.getType(), QDOObject::Undefined) << number;
    }
    QDOObject handle = MakeHandle(std::make_shared<int>(1));
    handle = source;
    EXPECT_EQ(handle.getType(), QDOObject::Undefined) << number;
  }
}

TEST(QDOObjectTest, CopiedStringIsTheSameElement) {
  const QDOObject original = Make("shared");
  const QDOObject copy = original;
  QDOObject assigned;
  assigned = copy;
  EXPECT_EQ(&original.getString(), &copy.getString());
  EXPECT_EQ(&original.getString(), &assigned.getString());
}

TEST(QDOObjectTest, ElementSurvivesTheValueItWasMadeIn) {
  QDOObject copy;
  {
    const QDOObject original = Make("a text longer than the small ones");
    copy.set(original);
  }
  EXPECT_EQ(Text(copy), "\"a text longer than the small ones\"");
}

TEST(QDOObjectTest, SettingOneCopyLeavesTheOthers) {
  QDOObject original = Make("shared");
  const QDOObject copy = original;
  original.set("other");
  EXPECT_EQ(Text(copy), "\"shared\"");
}

TEST(QDOObjectTest, HandleIsSharedAndReleasedLikeTheOtherSharedKinds) {
  const auto element = std::make_shared<int>(1);
  {
    const QDOObject handle = MakeHandle(element);
    QDOObject copy = handle;
    EXPECT_EQ(element.use_count(), 3);
    copy.destroy();
    EXPECT_EQ(element.use_count(), 2);
    copy = handle;
    EXPECT_EQ(copy.getType(), QDOObject::Handle);
  }
  EXPECT_EQ(element.use_count(), 1);
}

TEST(QDOObjectTest, LastHolderDeletesTheElement) {
  std::weak_ptr<int> watched;
  {
    auto element = std::make_shared<int>(1);
    watched = element;
    QDOObject first = MakeHandle(std::move(element));
    const QDOObject second = first;
    first.destroy();
    EXPECT_FALSE(watched.expired());
  }
  EXPECT_TRUE(watched.expired());
}

TEST(QDOObjectTest, CopyNeedsOneAllocationForEverySize) {
  QDOObject map = Make(QDOObject::Map);
  for (int i = 0; i < 1000; ++i) {
    map[std::to_string(i)].set("member");
  }
  const long before = AllocationProbe::made();
  const QDOObject copy = map;
  EXPECT_EQ(AllocationProbe::made() - before, 1);
}

TEST(QDOObjectTest, SettingAValueToItselfLeavesItUndefined) {
  for (QDOObject& value : OneOfEachKind()) {
    EXPECT_EQ(&value.set(value), &value);
    EXPECT_EQ(value.getType(), QDOObject::Undefined);
  }
  const auto element = std::make_shared<int>(1);
  QDOObject handle = MakeHandle(element);
  handle.set(handle);
  EXPECT_EQ(element.use_count(), 1);
  QDOObject assigned = Make("text");
  const QDOObject& same = assigned;
  assigned = same;
  EXPECT_EQ(assigned.getType(), QDOObject::Undefined);
}

TEST(QDOObjectTest, EmptyHandleCannotBeCopied) {
  const QDOObject handle = Make(QDOObject::Handle);
  QDOObject copy = Make(5LL);
  EXPECT_EQ(Thrown([&] { copy.set(handle); }), "QDOObjectException 2 about no value");
  EXPECT_EQ(copy.getType(), QDOObject::Undefined);
  EXPECT_EQ(Thrown([&] { QDOObject constructed(handle); }), "QDOObjectException 2 about no value");
  EXPECT_EQ(handle.getType(), QDOObject::Handle);
}

TEST(QDOObjectTest, CopyOfAStringWithoutHolderStaysTaggedString) {
  QDOObject source = Make("cleared");
  source.clearString();
  for (QDOObject& target : OneOfEachKind()) {
    EXPECT_EQ(Thrown([&] { target.set(source); }), "QDOObjectException 2 about no value");
    EXPECT_EQ(target.getType(), QDOObject::String);
    EXPECT_EQ(Thrown([&] { target.getString(); }, &target),
              "QDOObjectException 2 about this value");
    EXPECT_EQ(Text(target.set("usable again")), "\"usable again\"");
  }
  EXPECT_EQ(Thrown([&] { QDOObject constructed(source); }), "QDOObjectException 2 about no value");
}

TEST(QDOObjectTest, CopyOfAContainerOrHandleWithoutHolderIsUndefined) {
  for (const auto type : {QDOObject::Vector, QDOObject::Map, QDOObject::Set, QDOObject::Handle}) {
    const QDOObject source = MakeRaw(type, 0);
    for (QDOObject& target : OneOfEachKind()) {
      EXPECT_EQ(Thrown([&] { target.set(source); }), "QDOObjectException 2 about no value");
      EXPECT_EQ(target.getType(), QDOObject::Undefined);
    }
  }
}

TEST(QDOObjectTest, FailedCopyReleasesTheOldContent) {
  const auto element = std::make_shared<int>(1);
  QDOObject target = MakeHandle(element);
  EXPECT_EQ(Thrown([&] { target.set(Make(QDOObject::Handle)); }),
            "QDOObjectException 2 about no value");
  EXPECT_EQ(element.use_count(), 1);
}

TEST(QDOObjectTest, SharingValuesMayBeCopiedAndDestroyedOnDifferentThreads) {
  const long before = AllocationProbe::live();
  {
    const QDOObject first = Make("shared by two threads, each through its own value");
    const QDOObject second = first;
    const auto churn = [](const QDOObject& own) {
      for (int i = 0; i < 20000; ++i) {
        const QDOObject copy = own;
      }
    };
    std::thread other(churn, std::cref(second));
    churn(first);
    other.join();
    EXPECT_EQ(Text(second), Text(first));
  }
  EXPECT_EQ(AllocationProbe::live(), before);
}

// Moves.

TEST(QDOObjectTest, MoveTakesThePayloadAndLeavesUndefined) {
  for (QDOObject& source : OneOfEachKind()) {
    const QDOObject::Type type = source.getType();
    const long before = AllocationProbe::made();
    QDOObject moved = std::move(source);
    EXPECT_EQ(moved.getType(), type);
    EXPECT_EQ(source.getType(), QDOObject::Undefined);
    QDOObject assigned;
    assigned = std::move(moved);
    EXPECT_EQ(assigned.getType(), type);
    EXPECT_EQ(moved.getType(), QDOObject::Undefined);
    EXPECT_EQ(AllocationProbe::made(), before);
  }
}

TEST(QDOObjectTest, MoveAssignmentReleasesTheOldContent) {
  const auto element = std::make_shared<int>(1);
  QDOObject value = MakeHandle(element);
  value = Make("text");
  EXPECT_EQ(element.use_count(), 1);
  EXPECT_EQ(Text(value), "\"text\"");
}

TEST(QDOObjectTest, MoveToItselfChangesNothing) {
  QDOObject value = Make("text");
  QDOObject& same = value;
  value = std::move(same);
  EXPECT_EQ(Text(value), "\"text\"");
}

// Proxy identifiers.

TEST(QDOObjectTest, ProxyIdIsTakenFromAnUnsignedInteger) {
  EXPECT_EQ(ProxyFrom(Make(7LL)), 7U);
  EXPECT_EQ(ProxyFrom(Make(4294967295LL)), 4294967295U);
  EXPECT_EQ(ProxyFrom(MakeRaw(QDOObject::UInt32, 3000000000U)), 3000000000U);
  EXPECT_EQ(ProxyFrom(MakeRaw(QDOObject::Int32, 8)), 8U);
  EXPECT_EQ(ProxyFrom(MakeRaw(QDOObject::UInt64, 9)), 9U);
}

TEST(QDOObjectTest, ProxyIdIsTakenFromAnotherProxyId) {
  EXPECT_EQ(ProxyFrom(MakeRaw(QDOObject::ProxyId, 4294967295U)), 4294967295U);
}

TEST(QDOObjectTest, ProxyIdFromAnythingElseIsZero) {
  EXPECT_EQ(ProxyFrom(Make(-7LL)), 0U);
  EXPECT_EQ(ProxyFrom(Make(4294967296LL)), 0U);
  EXPECT_EQ(ProxyFrom(MakeRaw(QDOObject::Int32, 0xFFFFFFF9U)), 0U);
  EXPECT_EQ(ProxyFrom(MakeRaw(QDOObject::UInt64, kUInt64Max)), 0U);
  EXPECT_EQ(ProxyFrom(Make(7.0)), 0U);
  EXPECT_EQ(ProxyFrom(Make("7")), 0U);
  EXPECT_EQ(ProxyFrom(QDOObject::makeBool(true)), 0U);
  EXPECT_EQ(ProxyFrom(QDOObject()), 0U);
  EXPECT_EQ(ProxyFrom(Make(QDOObject::Null)), 0U);
  EXPECT_EQ(ProxyFrom(Make(QDOObject::Map)), 0U);
  EXPECT_EQ(ProxyFrom(Make(QDOObject::Handle)), 0U);
}

TEST(QDOObjectTest, SetProxyIdFromItselfReadsTheLow32BitsOfThePayload) {
  const auto fromItself = [](QDOObject value) { return Text(value.setProxyId(value)); };
  EXPECT_EQ(fromItself(Make(7LL)), "#7");
  EXPECT_EQ(fromItself(Make(-7LL)), "#4294967289");
  EXPECT_EQ(fromItself(Make(4294967298LL)), "#2");
  EXPECT_EQ(fromItself(MakeRaw(QDOObject::ProxyId, 5)), "#5");
  EXPECT_EQ(fromItself(Make("text")), "#0");
  EXPECT_EQ(fromItself(Make(QDOObject::Map)), "#0");
}

// Integer ranges.

TEST(QDOObjectTest, Int64IsInt32WhenItFits) {
  EXPECT_EQ(AsInt32(Make(0LL)), "0");
  EXPECT_EQ(AsInt32(Make(2147483647LL)), "2147483647");
  EXPECT_EQ(AsInt32(Make(-2147483648LL)), "-2147483648");
  EXPECT_EQ(AsInt32(Make(2147483648LL)), "QDOException 3");
  EXPECT_EQ(AsInt32(Make(-2147483649LL)), "QDOException 3");
  EXPECT_EQ(AsInt32(Make(4294967296LL)), "QDOException 3");
  EXPECT_EQ(AsInt32(Make(kInt64Max)), "QDOException 3");
  EXPECT_EQ(AsInt32(Make(kInt64Min)), "QDOException 3");
}

TEST(QDOObjectTest, UInt64IsJudgedAsSignedForInt32) {
  EXPECT_EQ(AsInt32(MakeRaw(QDOObject::UInt64, 2147483647)), "2147483647");
  EXPECT_EQ(AsInt32(MakeRaw(QDOObject::UInt64, 2147483648)), "QDOException 3");
  EXPECT_EQ(AsInt32(MakeRaw(QDOObject::UInt64, kUInt64Max)), "-1");
  EXPECT_EQ(AsInt32(MakeRaw(QDOObject::UInt64, kUInt64Max - 2147483647)), "-2147483648");
  EXPECT_EQ(AsInt32(MakeRaw(QDOObject::UInt64, kUInt64Max - 2147483648)), "QDOException 3");
}

TEST(QDOObjectTest, UInt32IsInt32WhenItsTopBitIsClear) {
  EXPECT_EQ(AsInt32(MakeRaw(QDOObject::UInt32, 2147483647)), "2147483647");
  EXPECT_EQ(AsInt32(MakeRaw(QDOObject::UInt32, 2147483648)), "QDOException 3");
  EXPECT_EQ(AsInt32(MakeRaw(QDOObject::UInt32, 3000000000U)), "QDOException 3");
}

TEST(QDOObjectTest, Int32IsAlwaysInt32) {
  EXPECT_EQ(AsInt32(MakeRaw(QDOObject::Int32, 0x7FFFFFFF)), "2147483647");
  EXPECT_EQ(AsInt32(MakeRaw(QDOObject::Int32, 0x80000000U)), "-2147483648");
}

TEST(QDOObjectTest, Int64IsUIntWhenItFits) {
  EXPECT_EQ(AsUInt32(Make(0LL)), "0");
  EXPECT_EQ(AsUInt32(Make(4294967295LL)), "4294967295");
  EXPECT_EQ(AsUInt32(Make(4294967296LL)), "QDOException 3");
  EXPECT_EQ(AsUInt32(Make(-1LL)), "QDOException 3");
  EXPECT_EQ(AsUInt32(Make(kInt64Min)), "QDOException 3");
}

TEST(QDOObjectTest, UInt64IsUIntWhenItFits) {
  EXPECT_EQ(AsUInt32(MakeRaw(QDOObject::UInt64, 4294967295U)), "4294967295");
  EXPECT_EQ(AsUInt32(MakeRaw(QDOObject::UInt64, 4294967296U)), "QDOException 3");
  EXPECT_EQ(AsUInt32(MakeRaw(QDOObject::UInt64, kUInt64Max)), "QDOException 3");
}

TEST(QDOObjectTest, UInt32IsAlwaysUInt) {
  EXPECT_EQ(AsUInt32(MakeRaw(QDOObject::UInt32, 3000000000U)), "3000000000");
}

TEST(QDOObjectTest, Int32IsUIntWhenNotNegative) {
  EXPECT_EQ(AsUInt32(MakeRaw(QDOObject::Int32, 0)), "0");
  EXPECT_EQ(AsUInt32(MakeRaw(QDOObject::Int32, 2147483647)), "2147483647");
  EXPECT_EQ(AsUInt32(MakeRaw(QDOObject::Int32, 0xFFFFFFFFU)), "QDOException 3");
}

// Getters.

TEST(QDOObjectTest, EachGetterAcceptsItsKindsOnlyAndChangesNothing) {
  for (QDOObject& value : OneOfEachKind()) {
    const QDOObject::Type type = value.getType();
    const auto expect = [&](bool accepted) { return accepted ? "nothing" : "QDOException 3"; };
    const bool integer = type >= QDOObject::UInt32 && type <= QDOObject::UInt64;
    EXPECT_TRUE(integer || !value.IsInt32()) << type;
    EXPECT_TRUE(integer || !value.IsUInt()) << type;
    EXPECT_EQ(Thrown([&] { value.getBool(); }), expect(type == QDOObject::Bool)) << type;
    EXPECT_EQ(Thrown([&] { value.getQDOInt32(); }), expect(value.IsInt32())) << type;
    EXPECT_EQ(Thrown([&] { value.getQDOUInt32(); }), expect(value.IsUInt())) << type;
    EXPECT_EQ(Thrown([&] { value.getInt64(); }), expect(type == QDOObject::Int64)) << type;
    EXPECT_EQ(Thrown([&] { value.getDouble(); }), expect(type == QDOObject::Double)) << type;
    EXPECT_EQ(Thrown([&] { value.getString(); }), expect(type == QDOObject::String)) << type;
    EXPECT_EQ(Thrown([&] { value.getVector(); }), expect(type == QDOObject::Vector)) << type;
    EXPECT_EQ(Thrown([&] { value.getMap(); }), expect(type == QDOObject::Map)) << type;
    EXPECT_EQ(Thrown([&] { value.getProxyIdentifier(); }), expect(type == QDOObject::ProxyId))
        << type;
    EXPECT_EQ(value.getType(), type);
  }
}

TEST(QDOObjectTest, BooleansAreNotConverted) {
  EXPECT_EQ(Thrown([] { Make(1LL).getBool(); }), "QDOException 3");
  EXPECT_EQ(Thrown([] { Make("true").getBool(); }), "QDOException 3");
  EXPECT_EQ(AsInt32(QDOObject::makeBool(true)), "QDOException 3");
  EXPECT_EQ(AsUInt32(Make(1.0)), "QDOException 3");
}

// Clearing.

TEST(QDOObjectTest, EachClearReleasesTheHolderOfItsKindOnlyAndKeepsTheType) {
  struct Clear {
    QDOObject::Type type;
    void (QDOObject::*operation)() noexcept;
  };
  const Clear clears[] = {{QDOObject::String, &QDOObject::clearString},
                          {QDOObject::Vector, &QDOObject::clearVector},
                          {QDOObject::Map, &QDOObject::clearMap},
                          {QDOObject::Set, &QDOObject::clearSet}};
  for (const Clear& clear : clears) {
    for (const auto& held : {QDOObject::String, QDOObject::Vector, QDOObject::Map, QDOObject::Set,
                             QDOObject::Handle}) {
      const auto element = std::make_shared<std::string>("element");
      QDOObject value = MakeShared(held, element);
      (value.*clear.operation)();
      EXPECT_EQ(value.getType(), held);
      EXPECT_EQ(element.use_count(), held == clear.type ? 1 : 2) << held << clear.type;
      (value.*clear.operation)();  // no content is left
      EXPECT_EQ(value.getType(), held);
    }
    QDOObject scalar = Make(kInt64Max);
    (scalar.*clear.operation)();
    EXPECT_EQ(scalar.getInt64(), kInt64Max);
  }
}

TEST(QDOObjectTest, ClearedStringThrowsCode2NamingTheValue) {
  QDOObject value = Make("text");
  const QDOObject copy = value;
  value.clearString();
  EXPECT_EQ(Thrown([&] { value.getString(); }, &value), "QDOObjectException 2 about this value");
  EXPECT_EQ(Text(copy), "\"text\"");
}

TEST(QDOObjectTest, DestroyLeavesUndefinedAndMayBeRepeated) {
  for (QDOObject& value : OneOfEachKind()) {
    value.destroy();
    EXPECT_EQ(value.getType(), QDOObject::Undefined);
    value.destroy();
    EXPECT_EQ(value.getType(), QDOObject::Undefined);
  }
}

TEST(QDOObjectTest, DerivedValueIsDestroyedThroughItsBase) {
  struct Derived : QDOObject {
    explicit Derived(bool* destroyed) : destroyed_(destroyed) {}
    ~Derived() override { *destroyed_ = true; }
    bool* destroyed_;
  };
  bool destroyed = false;
  std::unique_ptr<QDOObject>(std::make_unique<Derived>(&destroyed)).reset();
  EXPECT_TRUE(destroyed);
}

// Memory exhaustion.

namespace {

/// Applies `operation` to a value of every type, with a failure of each allocation in turn. Expects
/// for every failure that the outcome is `expected`, the value is Undefined and usable, and no
/// memory leaks.
template <typename Operation>
void ExpectEveryFailure(Outcome expected, long allocations, Operation operation) {
  for (const QDOObject& earlier : OneOfEachKind()) {
    const auto prepare = [&](QDOObject& value) {
      Thrown([&] { value.set(earlier); });  // an empty Handle gives Undefined
    };
    const long before = AllocationProbe::live();
    for (long nth = 1; nth <= allocations + 1; ++nth) {
      QDOObject value;
      prepare(value);
      const Outcome outcome = AttemptFailingNth(nth, [&] { operation(value); });
      const auto where =
          "allocation " + std::to_string(nth) + " over kind " + std::to_string(earlier.getType());
      EXPECT_EQ(outcome, nth <= allocations ? expected : Outcome::Done) << where;
      if (nth <= allocations) {
        EXPECT_EQ(value.getType(), QDOObject::Undefined) << where;
        EXPECT_EQ(Text(QDOObject(value)), "undefined") << where;
        EXPECT_EQ(Text(value.set("usable")), "\"usable\"") << where;
      }
    }
    EXPECT_EQ(AllocationProbe::live(), before) << "leaked over kind " << earlier.getType();
  }
}

}  // namespace

TEST(QDOObjectTest, FailedStringAllocationIsCode1AndLeavesUndefined) {
  const char* longText = "a text longer than the small ones";
  ExpectEveryFailure(Outcome::NotEnoughMemory, 3, [&](QDOObject& v) { v.setString(longText); });
  ExpectEveryFailure(Outcome::NotEnoughMemory, 3, [&](QDOObject& v) { v.set(longText); });
  ExpectEveryFailure(Outcome::NotEnoughMemory, 2, [](QDOObject& v) { v.set(QDOObject::String); });
}

TEST(QDOObjectTest, FailedContainerAllocationIsCode1AndLeavesUndefined) {
  ExpectEveryFailure(Outcome::NotEnoughMemory, 2, [](QDOObject& v) { v.createVector(); });
  ExpectEveryFailure(Outcome::NotEnoughMemory, 2, [](QDOObject& v) { v.createMap(); });
  ExpectEveryFailure(Outcome::NotEnoughMemory, 2, [](QDOObject& v) { v.createSet(); });
  ExpectEveryFailure(Outcome::NotEnoughMemory, 2, [](QDOObject& v) { v.set(QDOObject::Vector); });
  ExpectEveryFailure(Outcome::NotEnoughMemory, 2, [](QDOObject& v) { v.set(QDOObject::Map); });
  ExpectEveryFailure(Outcome::NotEnoughMemory, 2, [](QDOObject& v) { v.set(QDOObject::Set); });
}

TEST(QDOObjectTest, FailedHolderAllocationOfACopyPassesThroughAndLeavesUndefined) {
  const auto element = std::make_shared<int>(1);
  for (const QDOObject& source :
       {Make("text"), Make(QDOObject::Vector), Make(QDOObject::Map), Make(QDOObject::Set)}) {
    ExpectEveryFailure(Outcome::BadAlloc, 1, [&](QDOObject& v) { v.set(source); });
    ExpectEveryFailure(Outcome::BadAlloc, 1, [&](QDOObject& v) { v = source; });
  }
  const QDOObject handle = MakeHandle(element);
  ExpectEveryFailure(Outcome::BadAlloc, 1, [&](QDOObject& v) { v.set(handle); });
  EXPECT_EQ(AttemptFailingNth(1, [&] { QDOObject copy(handle); }), Outcome::BadAlloc);
  EXPECT_EQ(element.use_count(), 2);
}

TEST(QDOObjectTest, ScalarsAreSetWithoutAllocating) {
  const QDOObject source = Make(7LL);
  QDOObject value;
  const long before = AllocationProbe::made();
  value.set(1LL).set(0.5).set(QDOObject::Null).set(source).setProxyId(source);
  value.set(QDOObject::Handle);
  EXPECT_EQ(AllocationProbe::made(), before);
}

TEST(QDOObjectTest, OtherErrorsWhileAllocatingPassThroughAndLeaveUndefined) {
  using OtherError = AllocationProbe::OtherError;
  for (const auto type : {QDOObject::String, QDOObject::Vector, QDOObject::Map, QDOObject::Set}) {
    QDOObject value = Make(kInt64Max);
    AllocationProbe::failNextOtherwise();
    EXPECT_THROW(value.set(type), OtherError) << type;
    EXPECT_EQ(value.getType(), QDOObject::Undefined) << type;
  }
}
