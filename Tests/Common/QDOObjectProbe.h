#ifndef TESTS_COMMON_QDOOBJECTPROBE_H_
#define TESTS_COMMON_QDOOBJECTPROBE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "QDOException.h"
#include "QDOObject.h"

QDOObject::Type QDOObject::*TypeField();
std::uint64_t QDOObject::*PayloadField();
void* NewHolder(std::shared_ptr<void> element);

/// Defines the three: an explicit instantiation is the one place that may name private members.
template <QDOObject::Type QDOObject::*kType, std::uint64_t QDOObject::*kPayload, typename Holder>
struct QDOObjectFields {
  friend QDOObject::Type QDOObject::*TypeField() { return kType; }
  friend std::uint64_t QDOObject::*PayloadField() { return kPayload; }
  friend void* NewHolder(std::shared_ptr<void> element) { return new Holder{std::move(element)}; }
};
template struct QDOObjectFields<&QDOObject::type_, &QDOObject::payload_, QDOObject::Holder>;

/// A value of the given fields. Some kinds have no setter that gives them a value.
inline QDOObject MakeRaw(QDOObject::Type type, std::uint64_t payload) {
  QDOObject value;
  value.*TypeField() = type;
  value.*PayloadField() = payload;
  return value;
}

/// A value of a shared kind whose holder shares `element`.
inline QDOObject MakeShared(QDOObject::Type type, std::shared_ptr<void> element) {
  return MakeRaw(type, reinterpret_cast<std::uintptr_t>(NewHolder(std::move(element))));
}

inline QDOObject MakeHandle(std::shared_ptr<void> element) {
  return MakeShared(QDOObject::Handle, std::move(element));
}

/// A value made by one setter: `Make(7LL)`, `Make("text")`, `Make(QDOObject::Map)`.
template <typename Argument>
QDOObject Make(const Argument& argument) {
  QDOObject value;
  value.set(argument);
  return value;
}

/// One value of every kind, each with a payload that has bits set; and a shared kind without a
/// holder.
inline std::vector<QDOObject> OneOfEachKind() {
  std::vector<QDOObject> values;
  values.push_back(QDOObject());
  values.push_back(QDOObject::makeBool(true));
  values.push_back(MakeRaw(QDOObject::UInt32, 3000000000U));
  values.push_back(MakeRaw(QDOObject::Int32, 0xFFFFFFFFU));
  values.push_back(Make(0x7FF123456789ABCDLL));
  values.push_back(MakeRaw(QDOObject::UInt64, ~0ULL));
  values.push_back(Make("a text longer than the small ones"));
  values.push_back(Make(-0.1));
  values.push_back(Make(QDOObject::Vector));
  values.back().getVector().push_back(Make("element"));
  values.push_back(Make(QDOObject::Map));
  values.back()["member"].set("m");
  values.push_back(MakeHandle(std::make_shared<int>(5)));
  values.push_back(Make(QDOObject::Set));
  values.push_back(MakeRaw(QDOObject::ProxyId, 4294967295U));
  values.push_back(Make(QDOObject::Null));
  values.push_back(Make(QDOObject::Handle));
  return values;
}

/// What `operation` throws, as in "QDOException 3" or, where an object is named,
/// "QDOObjectException 2 about this value" (`self`), "… about no value", "… about another value".
template <typename Operation>
std::string Thrown(Operation operation, const QDOObject* self = nullptr) {
  try {
    operation();
  } catch (const QDOObjectException& error) {
    const QDOObject* object = error.getObject();
    return "QDOObjectException " + std::to_string(error.getCode()) +
           (object == nullptr ? " about no value"
            : object == self  ? " about this value"
                              : " about another value");
  } catch (const QDOException& error) {
    return "QDOException " + std::to_string(error.getCode());
  }
  return "nothing";
}

#endif  // TESTS_COMMON_QDOOBJECTPROBE_H_
