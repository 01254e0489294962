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

/// Defines the three functions. Only an explicit instantiation may name private members.
template <QDOObject::Type QDOObject::*kType, std::uint64_t QDOObject::*kPayload, typename Holder>
struct QDOObjectFields {
  friend QDOObject::Type QDOObject::*TypeField() { return kType; }
  friend std::uint64_t QDOObject::*PayloadField() { return kPayload; }
  friend void* NewHolder(std::shared_ptr<void> element) { return new Holder{std::move(element)}; }
};
template struct QDOObjectFields<&QDOObject::type_, &QDOObject::payload_, QDOObject::Holder>;

/// Returns a value with these members. Some types have no setter for such a value.
inline QDOObject MakeRaw(QDOObject::Type type, std::uint64_t payload) {
  QDOObject value;
  value.*TypeField() = type;
  value.*PayloadField() = payload;
  return value;
}

/// Returns a value of a shared type whose holder shares `element`.
inline QDOObject MakeShared(QDOObject::Type type, std::shared_ptr<void> element) {
  return MakeRaw(type, reinterpret_cast<std::uintptr_t>(NewHolder(std::move(element))));
}

inline QDOObject MakeHandle(std::shared_ptr<void> element) {
  return MakeShared(QDOObject::Handle, std::move(element));
}

/// Returns a value made by one setter, for example `Make(7LL)`, `Make("text")`,
/// `Make(QDOObject::Map)`.
template <typename Argument>
QDOObject Make(const Argument& argument) {
  QDOObject value;
  value.set(argument);
  return value;
}

/// Returns one value of every type, each with a payload other than 0, and one value of a shared
/// type without a holder.
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

/// Returns the exception of `operation`, for example "QDOException 3". An exception with an object
/// gives "QDOObjectException 2 about this value" (`self`), "… about no value" or "… about another
/// value".
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
