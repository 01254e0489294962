#include "QDOObject.h"

#include <cstring>
#include <limits>
#include <new>
#include <set>
#include <utility>

#include "QDOException.h"

namespace {

constexpr int kNullDereference = 2;
constexpr int kUnexpectedType = 3;

/// The deepest nesting that is destroyed recursively. Values nested deeper wait in a list until the
/// recursion ends, so that no destruction overflows the stack.
constexpr unsigned int kFreedOnTheStack = 100;

bool IsShared(QDOObject::Type type) {
  return type == QDOObject::String || type == QDOObject::Vector || type == QDOObject::Map ||
         type == QDOObject::Handle || type == QDOObject::Set;
}

std::int32_t LowAsInt32(std::uint64_t bits) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(bits));
}

void Require(bool condition) {
  if (!condition) {
    throw QDOException(kUnexpectedType);
  }
}

}  // namespace

static_assert(sizeof(void*) <= sizeof(std::uint64_t), "a holder's address must fit the payload");

QDOObject::QDOObject(QDOObject&& other) noexcept
    : type_(std::exchange(other.type_, Undefined)), payload_(std::exchange(other.payload_, 0)) {}

QDOObject& QDOObject::operator=(QDOObject&& other) noexcept {
  QDOObject taken(std::move(other));
  std::swap(type_, taken.type_);
  std::swap(payload_, taken.payload_);
  return *this;
}

QDOObject QDOObject::makeBool(bool value) noexcept {
  QDOObject result;
  result.type_ = Bool;
  result.payload_ = value ? 1 : 0;
  return result;
}

QDOObject& QDOObject::set(const long long& value) {
  const auto bits = static_cast<std::uint64_t>(value);  // read first: may be in this payload
  const Held held = detach();
  type_ = Int64;
  payload_ = bits;
  return *this;
}

QDOObject& QDOObject::set(double value) {
  const Held held = detach();
  type_ = Double;
  static_assert(sizeof value == sizeof payload_);
  std::memcpy(&payload_, &value, sizeof value);
  return *this;
}

QDOObject& QDOObject::set(const char* text) {
  if (text == nullptr) {
    throw QDOException(kNullDereference);
  }
  setString(text);
  return *this;
}

QDOObject& QDOObject::set(Type type) {
  switch (type) {
    case String:
      setString("");
      break;
    case Vector:
      createVector();
      break;
    case Map:
      createMap();
      break;
    case Set:
      createSet();
      break;
    default: {
      const Held held = detach();
      type_ = type > Null ? Undefined : type;
      payload_ = 0;
    }
  }
  return *this;
}

QDOObject& QDOObject::set(const QDOObject& other) {
  const Held held = detach();  // if `other` is this value, its type is Undefined from here on
  if (other.type_ > Null) {
    return *this;  // a type above Null does not survive a copy
  }
  if (!IsShared(other.type_)) {
    payload_ = other.payload_;
  } else if (other.holder() != nullptr) {
    setHolder(new Holder{other.holder()->element});
  } else {
    setHolder(nullptr);
    type_ = other.type_ == String ? String : Undefined;  // different for String, on purpose
    throw QDOObjectException(kNullDereference, nullptr);
  }
  type_ = other.type_;
  return *this;
}

void QDOObject::setString(const char* text) {
  hold(String, [text] { return std::make_shared<std::string>(text); });
}

QDOObject& QDOObject::setProxyId(const QDOObject& source) {
  const Held held = detach();
  type_ = ProxyId;
  payload_ = source.type_ == ProxyId ? source.getProxyIdentifier()
             : source.IsUInt()       ? source.getQDOUInt32()
                                     : 0;
  return *this;
}

void QDOObject::createVector() {
  hold(Vector, [] { return std::make_shared<std::vector<QDOObject>>(); });
}

void QDOObject::createMap() {
  hold(Map, [] { return std::make_shared<std::map<std::string, QDOObject>>(); });
}

void QDOObject::createSet() {
  hold(Set, [] { return std::make_shared<std::set<QDOObject>>(); });
}

template <typename Make>
void QDOObject::hold(Type type, Make makeElement) {
  const Held held = detach();
  try {
    setHolder(new Holder{makeElement()});  // GCOVR_EXCL_BR_LINE: an exception's only
    type_ = type;
  } catch (const std::bad_alloc&) {
    throw QDOException(QDOException::NotEnoughMemory());
  }
}

void QDOObject::clear(Type type) noexcept {
  if (type_ == type) {
    const Held held(holder());
    setHolder(nullptr);
  }
}

void QDOObject::destroy() noexcept {
  const Held held = detach();
}

QDOObject::Held QDOObject::detach() noexcept {
  Held held;
  if (IsShared(type_)) {
    held.reset(holder());
    setHolder(nullptr);
  }
  type_ = Undefined;
  return held;
}

void QDOObject::Release::operator()(Holder* holder) const noexcept {
  if (holder->element.use_count() > 1) {
    delete holder;  // GCOVR_EXCL_BR_LINE: the compiler's test for null, here and below
    return;
  }
  thread_local unsigned int depth = 0;
  thread_local Holder* waiting = nullptr;
  if (depth == kFreedOnTheStack) {
    holder->next = std::exchange(waiting, holder);
    return;
  }
  ++depth;
  delete holder;  // GCOVR_EXCL_BR_LINE
  while (depth == 1 && waiting != nullptr) {
    delete std::exchange(waiting, waiting->next);  // GCOVR_EXCL_BR_LINE
  }
  --depth;
}

bool QDOObject::IsInt32() const noexcept {
  switch (type_) {
    case UInt32:
      return payload_ <= std::numeric_limits<std::int32_t>::max();
    case Int32:
      return true;
    case Int64:
    case UInt64:  // the same test for both, on purpose
      return static_cast<std::uint64_t>(std::int64_t{LowAsInt32(payload_)}) == payload_;
    default:
      return false;
  }
}

bool QDOObject::IsUInt() const noexcept {
  switch (type_) {
    case UInt32:
      return true;
    case Int32:
      return LowAsInt32(payload_) >= 0;
    case Int64:
    case UInt64:  // a negative Int64 has its top bit set
      return payload_ <= std::numeric_limits<std::uint32_t>::max();
    default:
      return false;
  }
}

bool QDOObject::getBool() const {
  Require(type_ == Bool);
  return payload_ != 0;
}

std::int32_t QDOObject::getQDOInt32() const {
  Require(IsInt32());
  return LowAsInt32(payload_);
}

std::uint32_t QDOObject::getQDOUInt32() const {
  Require(IsUInt());
  return static_cast<std::uint32_t>(payload_);
}

std::int64_t QDOObject::getInt64() const {
  Require(type_ == Int64);
  return static_cast<std::int64_t>(payload_);
}

double QDOObject::getDouble() const {
  Require(type_ == Double);
  double value = 0;
  std::memcpy(&value, &payload_, sizeof value);
  return value;
}

std::uint32_t QDOObject::getProxyIdentifier() const {
  Require(type_ == ProxyId);
  return static_cast<std::uint32_t>(payload_);
}

QDOObject& QDOObject::operator[](const std::string& key) {
  if (type_ != Map) {
    throw QDOObjectException(kUnexpectedType, this);
  }
  return getMap()[key];
}

template <typename Element>
Element& QDOObject::element(Type type) const {
  Require(type_ == type);
  if (holder() == nullptr || holder()->element == nullptr) {
    throw QDOObjectException(kNullDereference, this);
  }
  return *static_cast<Element*>(holder()->element.get());
}

template std::string& QDOObject::element(Type type) const;
template std::vector<QDOObject>& QDOObject::element(Type type) const;
template std::map<std::string, QDOObject>& QDOObject::element(Type type) const;

QDOObject::Holder* QDOObject::holder() const noexcept {
  return reinterpret_cast<Holder*>(static_cast<std::uintptr_t>(payload_));
}

void QDOObject::setHolder(Holder* holder) noexcept {
  payload_ = reinterpret_cast<std::uintptr_t>(holder);
}
