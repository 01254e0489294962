#ifndef COMMON_QDO_QDOOBJECT_H_
#define COMMON_QDO_QDOOBJECT_H_

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

/// A dynamic value of one of fourteen types.
///
///     QDOObject map;
///     map.set(QDOObject::Map);
///     map["answer"].set(42);
///     QDOObject copy = map;          // shares the map
///     copy["answer"].set(43);
///     map["answer"].getQDOInt32();   // 43
///
/// A copy shares the string or the container of the original: a change through one copy is visible
/// through all copies. The last copy frees the string or the container. Values may nest to any
/// depth, because a destruction uses a bounded part of the stack.
///
/// Do not put a container into itself: the cycle of references is not detected and is never freed.
/// To break the cycle, call a setter, destroy() or a clear operation such as clearMap() on the
/// value inside the container. The call may destroy this value: do not use the reference that a
/// setter returns. Do not change the cyclic container itself: getVector() and getMap() have the
/// reason.
///
/// Only one thread at a time may use a value. Different threads may copy and destroy different
/// values that share a string or a container.
class QDOObject {
 public:
  /// The type of a value. The numbers are fixed.
  enum Type : std::uint32_t {
    Undefined = 0,  ///< No value: the state of a new value.
    Bool = 1,
    UInt32 = 2,
    Int32 = 3,
    Int64 = 4,
    UInt64 = 5,
    String = 6,
    Double = 7,
    Vector = 8,
    Map = 9,
    Handle = 10,  ///< A shared object of a class that is defined elsewhere.
    Set = 11,
    ProxyId = 12,  ///< An unsigned 32-bit identifier, written "12^" in JSON.
    Null = 13,     ///< A null value, for example JSON's null.
  };

  QDOObject() noexcept = default;
  QDOObject(const QDOObject& other) { set(other); }
  /// Moves the value of `other` without an allocation and leaves `other` Undefined.
  QDOObject(QDOObject&& other) noexcept;
  virtual ~QDOObject() { destroy(); }

  QDOObject& operator=(const QDOObject& other) { return set(other); }
  QDOObject& operator=(QDOObject&& other) noexcept;

  static QDOObject makeBool(bool value) noexcept;

  // Setters. Each setter replaces the old value and returns this value. The old value is released
  // last, so the argument may be a part of the old value. If memory is exhausted, a setter that
  // makes a string or a container throws QDOException with code 1 and leaves this value Undefined.

  QDOObject& set(const long long& value);  ///< Makes an Int64.
  /// Makes an Int64. Accepts each integer type whose values all fit a long long.
  template <typename Integer,
            typename = std::enable_if_t<std::is_integral_v<Integer> &&
                                        std::numeric_limits<Integer>::digits <=
                                            std::numeric_limits<long long>::digits>>
  QDOObject& set(Integer value) {
    return set(static_cast<const long long&>(static_cast<long long>(value)));
  }
  QDOObject& set(bool value) = delete;  ///< Deleted, because makeBool() makes a Bool.
  QDOObject& set(double value);         ///< Makes a Double.
  /// Makes a String from the zero-terminated `text`. Throws QDOException with code 2, and keeps the
  /// old value, if `text` is null.
  QDOObject& set(const char* text);
  /// Makes the initial value of `type`: false, 0, an empty string or container, or a Handle without
  /// content. A type above Null makes Undefined.
  QDOObject& set(Type type);
  /// Makes a copy of `other` in constant time. The copy of a string or a container is shared.
  /// `value.set(value)` makes the value Undefined: this quirk is kept on purpose. Throws
  /// std::bad_alloc, and leaves this value Undefined, if memory is exhausted.
  ///
  /// Throws QDOObjectException if `other` has no content: a Handle, or a String, Vector, Map or Set
  /// after a clear operation. The exception has code 2 and no object. On purpose, this value is
  /// then a String without content if `other` is a String, and Undefined otherwise.
  QDOObject& set(const QDOObject& other);
  /// Makes a String from the zero-terminated `text`. Requires: `text` is not null.
  void setString(const char* text);
  /// Makes a ProxyId from another ProxyId, or from a value that satisfies IsUInt(). Any other value
  /// gives the identifier 0. If `source` is this value, the new identifier has the low 32 bits of
  /// the old number. This quirk is kept on purpose.
  QDOObject& setProxyId(const QDOObject& source);

  void createVector();  ///< Makes an empty Vector.
  void createMap();     ///< Makes an empty Map.
  void createSet();     ///< Makes an empty Set.

  // Each operation releases the content if the value has the type in the operation's name, and does
  // nothing otherwise. The type stays, and the value then has no content. Other copies keep the
  // content.

  void clearString() noexcept { clear(String); }
  void clearVector() noexcept { clear(Vector); }
  void clearMap() noexcept { clear(Map); }
  void clearSet() noexcept { clear(Set); }

  /// Makes this value Undefined and releases the old value. Never throws: a std::shared_ptr owns
  /// the content and lets no exception out of a destructor.
  void destroy() noexcept;

  Type getType() const noexcept { return type_; }

  /// Returns whether the value is an integer that fits a signed 32-bit integer. A UInt64 counts as
  /// a signed number, on purpose: getQDOInt32() of the UInt64 2^64 - 1 returns -1.
  bool IsInt32() const noexcept;
  /// Returns whether the value is an integer that fits an unsigned 32-bit integer.
  bool IsUInt() const noexcept;

  // Getters. A getter converts no type: it throws QDOException with code 3 if the value has another
  // type. A getter of a string or a container throws QDOObjectException with code 2 and this value
  // if the value is without content.

  bool getBool() const;
  std::int32_t getQDOInt32() const;    ///< Throws unless IsInt32().
  std::uint32_t getQDOUInt32() const;  ///< Throws unless IsUInt().
  std::int64_t getInt64() const;
  double getDouble() const;
  std::uint32_t getProxyIdentifier() const;
  /// Returns the shared string. The reference is valid until the last copy releases the string.
  const std::string& getString() const { return element<std::string>(String); }
  /// Returns the shared vector. The reference is valid until the last copy releases the vector. If
  /// the vector contains itself, do not break the cycle through an operation of std::vector, for
  /// example clear(): the call could destroy the vector while the call is in progress.
  std::vector<QDOObject>& getVector() { return element<std::vector<QDOObject>>(Vector); }
  const std::vector<QDOObject>& getVector() const {
    return element<std::vector<QDOObject>>(Vector);
  }
  /// Returns the shared map. The reference is valid until the last copy releases the map. If the
  /// map contains itself, do not break the cycle through an operation of std::map, for example
  /// clear(): the call could destroy the map while the call is in progress.
  std::map<std::string, QDOObject>& getMap() {
    return element<std::map<std::string, QDOObject>>(Map);
  }
  const std::map<std::string, QDOObject>& getMap() const {
    return element<std::map<std::string, QDOObject>>(Map);
  }

  /// Returns the map's member named `key`. A missing member is inserted as Undefined. Throws
  /// QDOObjectException with code 3 and this value if the value is no Map. On purpose, getMap()
  /// throws another class, QDOException.
  QDOObject& operator[](const std::string& key);

 private:
  /// One reference to a string, vector, map, set or handle object. Each value has its own Holder.
  struct Holder {
    std::shared_ptr<void> element;
    Holder* next = nullptr;  ///< The next Holder in the list of Holders that wait to be freed.
  };

  struct Release {
    void operator()(Holder* holder) const noexcept;
  };
  using Held = std::unique_ptr<Holder, Release>;

  Holder* holder() const noexcept;
  void setHolder(Holder* holder) noexcept;
  void clear(Type type) noexcept;
  /// Makes the value Undefined and returns the old content. Keep the result as long as the value or
  /// an argument is in use, because either may be a part of the old content.
  [[nodiscard]] Held detach() noexcept;
  /// Makes a value of `type` with the content that `makeElement` returns as a std::shared_ptr.
  template <typename Make>
  void hold(Type type, Make makeElement);
  template <typename Element>
  Element& element(Type type) const;

  Type type_ = Undefined;
  /// The bits of the value, the address of an owned Holder, or null. One integer serves all types,
  /// so the bits are defined even if one type is written and another type is read.
  std::uint64_t payload_ = 0;
};

#endif  // COMMON_QDO_QDOOBJECT_H_
