#include <gtest/gtest.h>

#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "AllocationProbe.h"
#include "QDOObject.h"
#include "QDOObjectProbe.h"
#include "Rendering.h"

namespace {

QDOObject VectorOf(const QDOObject& element) {
  QDOObject vector = Make(QDOObject::Vector);
  vector.getVector().push_back(element);
  return vector;
}

QDOObject MapOf(const std::string& key, const QDOObject& member) {
  QDOObject map = Make(QDOObject::Map);
  map[key].set(member);
  return map;
}

/// Returns values that own the container in which they are, directly or one level deeper. No other
/// value owns the containers.
std::vector<QDOObject*> OwnersInsideTheirContainer() {
  const auto inside = [](const QDOObject& container, QDOObject& member) {
    member.set(container);
    return &member;
  };
  std::vector<QDOObject*> owners;
  QDOObject map = MapOf("a text longer than the small ones", Make("before"));
  owners.push_back(inside(map, map["self"]));
  QDOObject vector = VectorOf(Make("before"));
  vector.getVector().emplace_back();
  owners.push_back(inside(vector, vector.getVector().back()));
  QDOObject outerMap = MapOf("k", VectorOf(QDOObject()));
  owners.push_back(inside(outerMap, outerMap["k"].getVector().front()));
  QDOObject outerVector = VectorOf(MapOf("k", QDOObject()));
  owners.push_back(inside(outerVector, outerVector.getVector().front()["k"]));
  return owners;
}

/// Applies `operation` to each such value. Expects that each container is freed once.
template <typename Operation>
void ExpectBroken(const char* name, Operation operation) {
  SCOPED_TRACE(name);
  const long before = AllocationProbe::live();
  for (QDOObject* owner : OwnersInsideTheirContainer()) {
    operation(*owner);
  }
  EXPECT_EQ(AllocationProbe::live(), before);
}

}  // namespace

static_assert(
    std::is_same_v<decltype(std::declval<QDOObject&>().getVector()), std::vector<QDOObject>&>);
static_assert(std::is_same_v<decltype(std::declval<QDOObject&>().getMap()),
                             std::map<std::string, QDOObject>&>);

TEST(QDOObjectContainersTest, CreatedContainersAreEmptyAndOfTheirKind) {
  for (QDOObject& value : OneOfEachKind()) {  // for every type of the old value
    value.createVector();
    EXPECT_EQ(value.getType(), QDOObject::Vector);
    EXPECT_TRUE(value.getVector().empty());
    value.createMap();
    EXPECT_EQ(value.getType(), QDOObject::Map);
    EXPECT_TRUE(value.getMap().empty());
    value.createSet();
    EXPECT_EQ(value.getType(), QDOObject::Set);
  }
}

TEST(QDOObjectContainersTest, CreatingAgainGivesANewContainer) {
  QDOObject value = VectorOf(Make(1LL));
  QDOObject view = value;
  value.createVector();
  EXPECT_EQ(Text(value), "[]");
  EXPECT_EQ(Text(view), "[1]");
}

TEST(QDOObjectContainersTest, GettersOfAnotherKindThrowPlainCode3) {
  QDOObject vector = Make(QDOObject::Vector);
  QDOObject map = Make(QDOObject::Map);
  QDOObject set = Make(QDOObject::Set);
  EXPECT_EQ(Thrown([&] { map.getVector(); }), "QDOException 3");
  EXPECT_EQ(Thrown([&] { set.getVector(); }), "QDOException 3");
  EXPECT_EQ(Thrown([&] { vector.getMap(); }), "QDOException 3");
  EXPECT_EQ(Thrown([&] { set.getMap(); }), "QDOException 3");
}

TEST(QDOObjectContainersTest, ConstantValuesAreReadTheSameWay) {
  QDOObject vector = VectorOf(Make(1));
  QDOObject map = MapOf("k", Make(2));
  const QDOObject& constantVector = vector;
  const QDOObject& constantMap = map;
  static_assert(
      std::is_same_v<decltype(constantVector.getVector()), const std::vector<QDOObject>&>);
  static_assert(
      std::is_same_v<decltype(constantMap.getMap()), const std::map<std::string, QDOObject>&>);
  EXPECT_EQ(&constantVector.getVector(), &vector.getVector());
  EXPECT_EQ(&constantMap.getMap(), &map.getMap());
  EXPECT_EQ(Thrown([&] { constantMap.getVector(); }), "QDOException 3");
  EXPECT_EQ(Thrown([&] { constantVector.getMap(); }), "QDOException 3");
  vector.clearVector();
  map.clearMap();
  EXPECT_EQ(Thrown([&] { constantVector.getVector(); }, &vector),
            "QDOObjectException 2 about this value");
  EXPECT_EQ(Thrown([&] { constantMap.getMap(); }, &map), "QDOObjectException 2 about this value");
}

TEST(QDOObjectContainersTest, ClearedContainerIsEmptyForAllThatShareIt) {
  QDOObject map = MapOf("k", Make(1));
  QDOObject view = map;
  map.getMap().clear();
  EXPECT_EQ(Text(view), "{}");
  QDOObject vector = VectorOf(Make(1));
  view = vector;
  vector.getVector().clear();
  vector.getVector().push_back(Make(2));
  EXPECT_EQ(Text(view), "[2]");
}

TEST(QDOObjectContainersTest, StandardContainerMayBeAssigned) {
  QDOObject vector = VectorOf(Make(1));
  QDOObject view = vector;
  const std::vector<QDOObject> elements = {Make(2), Make("b")};
  vector.getVector() = elements;
  EXPECT_EQ(Text(view), R"([2,"b"])");
  QDOObject map = MapOf("a", Make(1));
  view = map;
  map.getMap() = std::map<std::string, QDOObject>{{"k", vector}};
  EXPECT_EQ(Text(view), R"({"k":[2,"b"]})");
}

TEST(QDOObjectContainersTest, IndexingAnotherKindThrowsCode3NamingTheValue) {
  for (QDOObject& value : OneOfEachKind()) {
    const QDOObject::Type type = value.getType();
    EXPECT_EQ(Thrown([&] { value["k"]; }, &value),
              type == QDOObject::Map ? "nothing" : "QDOObjectException 3 about this value");
    EXPECT_EQ(value.getType(), type);
  }
}

TEST(QDOObjectContainersTest, ClearedContainersThrowCode2NamingTheValue) {
  QDOObject vector = Make(QDOObject::Vector);
  vector.clearVector();
  EXPECT_EQ(Thrown([&] { vector.getVector(); }, &vector), "QDOObjectException 2 about this value");
  EXPECT_EQ(vector.getType(), QDOObject::Vector);
  QDOObject map = Make(QDOObject::Map);
  map.clearMap();
  EXPECT_EQ(Thrown([&] { map.getMap(); }, &map), "QDOObjectException 2 about this value");
  EXPECT_EQ(Thrown([&] { map["k"]; }, &map), "QDOObjectException 2 about this value");
  EXPECT_EQ(map.getType(), QDOObject::Map);
}

TEST(QDOObjectContainersTest, HolderWithoutAContainerThrowsCode2NamingTheValue) {
  QDOObject vector = MakeShared(QDOObject::Vector, nullptr);
  EXPECT_EQ(Thrown([&] { vector.getVector(); }, &vector), "QDOObjectException 2 about this value");
  QDOObject map = MakeShared(QDOObject::Map, nullptr);
  EXPECT_EQ(Thrown([&] { map.getMap(); }, &map), "QDOObjectException 2 about this value");
  EXPECT_EQ(Thrown([&] { map["k"]; }, &map), "QDOObjectException 2 about this value");
}

TEST(QDOObjectContainersTest, CopyOfAClearedContainerThrowsAndIsUndefined) {
  QDOObject set = Make(QDOObject::Set);
  set.clearSet();
  QDOObject copy = Make("old");
  EXPECT_EQ(Thrown([&] { copy.set(set); }), "QDOObjectException 2 about no value");
  EXPECT_EQ(copy.getType(), QDOObject::Undefined);
}

TEST(QDOObjectContainersTest, IndexingInsertsAnUndefinedMemberWhenAbsent) {
  QDOObject map = MapOf("a", Make(1LL));
  EXPECT_EQ(map["k"].getType(), QDOObject::Undefined);
  EXPECT_EQ(map.getMap().size(), 2U);
  map["k"].set(2LL);
  EXPECT_EQ(Text(map["k"]), "2");
  EXPECT_EQ(map.getMap().size(), 2U);
  EXPECT_EQ(Text(map), R"({"a":1,"k":2})");
}

TEST(QDOObjectContainersTest, MembersAreVisitedInByteOrderOfTheirKeys) {
  QDOObject map = Make(QDOObject::Map);
  for (const char* key : {"ab", "\xC3\xA9", "a", "B", "", "z", "\x7F"}) {
    map[key].set(QDOObject::Null);
  }
  EXPECT_EQ(Text(map), R"({"":null,"B":null,"a":null,"ab":null,"z":null,"\x7F":null,)"
                       R"("\xC3\xA9":null})");
}

TEST(QDOObjectContainersTest, KeysMayHoldZeroBytes) {
  QDOObject map = Make(QDOObject::Map);
  map[std::string("a\0b", 3)].set(1LL);
  map["a"].set(2LL);
  EXPECT_EQ(Text(map), R"({"a":2,"a\x00b":1})");
}

TEST(QDOObjectContainersTest, VectorKeepsInsertionOrder) {
  QDOObject vector = Make(QDOObject::Vector);
  for (const long long number : {3LL, 1LL, 2LL}) {
    vector.getVector().push_back(Make(number));
  }
  EXPECT_EQ(Text(vector), "[3,1,2]");
}

// Sharing.

TEST(QDOObjectContainersTest, CopyIsAViewOfTheSameContainer) {
  QDOObject a = Make(QDOObject::Map);
  QDOObject b;
  b.set(a);
  b["k"].set(1LL);
  EXPECT_EQ(a.getMap().count("k"), 1U);
  EXPECT_EQ(&a.getMap(), &b.getMap());
  QDOObject vector = Make(QDOObject::Vector);
  QDOObject view = vector;
  vector.getVector().push_back(Make("seen"));
  EXPECT_EQ(Text(view), R"(["seen"])");
}

TEST(QDOObjectContainersTest, PushedElementSharesItsContainer) {
  QDOObject inner = Make(QDOObject::Map);
  QDOObject outer = VectorOf(inner);
  inner["late"].set(1LL);
  EXPECT_EQ(Text(outer), R"([{"late":1}])");
}

TEST(QDOObjectContainersTest, CopiedStandardContainerSharesTheEntriesContents) {
  QDOObject map = MapOf("v", Make(QDOObject::Vector));
  std::map<std::string, QDOObject> copy = map.getMap();
  copy["own"].set(1LL);
  copy["v"].getVector().push_back(Make(2LL));
  EXPECT_EQ(Text(map), R"({"v":[2]})");
}

TEST(QDOObjectContainersTest, ContainerOutlivesTheValueItWasMadeIn) {
  QDOObject copy;
  {
    const QDOObject original = MapOf("k", VectorOf(Make("text")));
    copy.set(original);
  }
  EXPECT_EQ(Text(copy), R"({"k":["text"]})");
}

TEST(QDOObjectContainersTest, DestroyingOneHolderDoesNotEmptyTheContainer) {
  QDOObject map = MapOf("k", Make(1LL));
  QDOObject view = map;
  map.destroy();
  EXPECT_EQ(Text(view), R"({"k":1})");
  view.set(5LL);
}

TEST(QDOObjectContainersTest, LastHolderDestroysTheWholeTree) {
  const auto leaf = std::make_shared<int>(1);
  const long before = AllocationProbe::live();
  {
    QDOObject tree = MapOf("k", VectorOf(MapOf("leaf", MakeHandle(leaf))));
    const QDOObject view = tree;
    EXPECT_EQ(leaf.use_count(), 2);
    tree.destroy();
    EXPECT_EQ(leaf.use_count(), 2);
  }
  EXPECT_EQ(leaf.use_count(), 1);
  EXPECT_EQ(AllocationProbe::live(), before);
}

TEST(QDOObjectContainersTest, NestingDeeperThanTheStackIsDestroyed) {
  constexpr int kLevels = 300000;
  const long before = AllocationProbe::live();
  const auto leaf = std::make_shared<int>(1);
  QDOObject nested = MakeHandle(leaf);
  for (int level = 0; level < kLevels; ++level) {
    QDOObject outer = Make(level % 2 == 0 ? QDOObject::Vector : QDOObject::Map);
    if (level % 2 == 0) {
      outer.getVector().push_back(std::move(nested));
    } else {
      outer["a"].set(1LL);
      outer["b"] = std::move(nested);
      outer["c"] = outer["b"];  // two references, freed once
    }
    nested = std::move(outer);
  }
  nested.destroy();
  EXPECT_EQ(leaf.use_count(), 1);
  EXPECT_EQ(AllocationProbe::live(), before + 1);
}

TEST(QDOObjectContainersTest, ReferenceStaysValidWhileAnyHolderLives) {
  QDOObject keeper;
  std::vector<QDOObject>* vector = nullptr;
  {
    QDOObject value = VectorOf(Make(1LL));
    vector = &value.getVector();
    keeper = value;
  }
  vector->push_back(Make(2LL));
  EXPECT_EQ(Text(keeper), "[1,2]");
}

TEST(QDOObjectContainersTest, EmptySetIsSharedAndReleased) {
  const long before = AllocationProbe::live();
  {
    const QDOObject set = Make(QDOObject::Set);
    const QDOObject copy = set;
    EXPECT_EQ(copy.getType(), QDOObject::Set);
  }
  EXPECT_EQ(AllocationProbe::live(), before);
}

TEST(QDOObjectContainersTest, ContainerInsideItselfIsNeverFreed) {
  const long before = AllocationProbe::live();
  std::map<std::string, QDOObject>* lost = nullptr;
  {
    QDOObject map = Make(QDOObject::Map);
    map["self"].set(map);
    lost = &map.getMap();
  }
  EXPECT_GT(AllocationProbe::live(), before);
  const QDOObject freedHere = std::move((*lost)["self"]);  // breaks the cycle
}

TEST(QDOObjectContainersTest, CycleThroughNestedMembersIsNeverFreed) {
  const long before = AllocationProbe::live();
  std::vector<QDOObject>* lost = nullptr;
  {
    QDOObject vector = VectorOf(Make(QDOObject::Map));
    lost = &vector.getVector();
    lost->front()["up"].set(vector);
  }
  EXPECT_GT(AllocationProbe::live(), before);
  const QDOObject freedHere = std::move(lost->front()["up"]);
}

TEST(QDOObjectContainersTest, CycleMayBeBrokenFromInside) {
  ExpectBroken("destroy", [](QDOObject& owner) { owner.destroy(); });
  ExpectBroken("set(long long)", [](QDOObject& owner) { owner.set(1LL); });
  ExpectBroken("set(int)", [](QDOObject& owner) { owner.set(1); });
  ExpectBroken("set(double)", [](QDOObject& owner) { owner.set(0.5); });
  ExpectBroken("setProxyId", [](QDOObject& owner) { owner.setProxyId(owner); });
  ExpectBroken("operator=", [](QDOObject& owner) { owner = QDOObject(); });
  ExpectBroken("set to itself", [](QDOObject& owner) { owner.set(owner); });
  for (std::uint32_t number = QDOObject::Undefined; number <= QDOObject::Null; ++number) {
    const auto type = static_cast<QDOObject::Type>(number);
    ExpectBroken("set(Type)", [&](QDOObject& owner) { owner.set(type); });
  }
}

TEST(QDOObjectContainersTest, CycleMayBeBrokenFromInsideBySharingSomethingElse) {
  const auto leaf = std::make_shared<int>(1);
  const QDOObject handle = MakeHandle(leaf);
  ExpectBroken("set(QDOObject)", [&](QDOObject& owner) { owner.set(handle); });
  ExpectBroken("set(char const*)", [](QDOObject& owner) { owner.set("text"); });
  ExpectBroken("setString", [](QDOObject& owner) { owner.setString("text"); });
  ExpectBroken("createVector", [](QDOObject& owner) { owner.createVector(); });
  ExpectBroken("createMap", [](QDOObject& owner) { owner.createMap(); });
  ExpectBroken("createSet", [](QDOObject& owner) { owner.createSet(); });
  EXPECT_EQ(leaf.use_count(), 2);
}

TEST(QDOObjectContainersTest, CycleMayBeBrokenFromInsideByClearing) {
  ExpectBroken("clearVector, clearMap", [](QDOObject& owner) {
    owner.getType() == QDOObject::Map ? owner.clearMap() : owner.clearVector();
  });
}

// Arguments inside the value's own container.

TEST(QDOObjectContainersTest, ValueMayBeSetToAMemberOfItsOwnContainer) {
  QDOObject vector = VectorOf(VectorOf(Make("inner")));
  vector.set(vector.getVector().front());
  EXPECT_EQ(Text(vector), R"(["inner"])");
  QDOObject map = MapOf("k", Make("a text longer than the small ones"));
  map.set(map["k"]);
  EXPECT_EQ(Text(map), R"("a text longer than the small ones")");
  QDOObject scalar = VectorOf(Make(7LL));
  scalar.set(scalar.getVector().front());
  EXPECT_EQ(Text(scalar), "7");
}

TEST(QDOObjectContainersTest, ValueMayBeAssignedAMemberOfItsOwnContainer) {
  QDOObject vector = VectorOf(MapOf("k", Make(1LL)));
  vector = vector.getVector().front();
  EXPECT_EQ(Text(vector), R"({"k":1})");
  vector = std::move(vector["k"]);
  EXPECT_EQ(Text(vector), "1");
}

TEST(QDOObjectContainersTest, ValueMayBeSetToATextInItsOwnContainer) {
  QDOObject vector = VectorOf(Make("a text longer than the small ones"));
  vector.set(vector.getVector().front().getString().c_str());
  EXPECT_EQ(Text(vector), R"("a text longer than the small ones")");
}

TEST(QDOObjectContainersTest, ProxyIdMayBeTakenFromAMemberOfItsOwnContainer) {
  QDOObject vector = VectorOf(Make(12LL));
  vector.setProxyId(vector.getVector().front());
  EXPECT_EQ(Text(vector), "#12");
}

TEST(QDOObjectContainersTest, FailedCopyFromItsOwnContainerIsSafe) {
  QDOObject vector = Make(QDOObject::Vector);
  vector.getVector().resize(1);
  vector.getVector().front().set(QDOObject::Handle);
  EXPECT_EQ(Thrown([&] { vector.set(vector.getVector().front()); }),
            "QDOObjectException 2 about no value");
  EXPECT_EQ(vector.getType(), QDOObject::Undefined);
}

TEST(QDOObjectContainersTest, GrowingAVectorMovesItsElements) {
  QDOObject vector = VectorOf(Make("element"));
  auto& elements = vector.getVector();
  elements.shrink_to_fit();
  const long before = AllocationProbe::made();
  elements.reserve(elements.capacity() + 1);
  EXPECT_EQ(AllocationProbe::made() - before, 1);  // the new block, without a new holder
  EXPECT_EQ(Text(vector), R"(["element"])");
}
