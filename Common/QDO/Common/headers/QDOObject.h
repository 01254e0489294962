#ifndef COMMON_QDO_QDOOBJECT_H_
#define COMMON_QDO_QDOOBJECT_H_

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

/// A dynamic value: at any moment exactly one value of one of fourteen kinds.
///
///     QDOObject map;
///     map.set(QDOObject::Map);
///     map["answer"].set(42);
///     QDOObject view = map;              // a second view of the same map
///     view["answer"].getQDOInt32();      // 42
///
/// Copying never duplicates a string or a container: a copy gets its own holder, which shares
/// the same element through an atomic count, so a change made through one copy is seen through the
/// other. Values may nest to any depth: destroying them takes a bounded part of the stack.
///
/// A container placed inside itself is never freed; nothing detects it. The value inside may break
/// the cycle by any setter, by destroy() or by a clear operation such as clearMap(): that value is
/// then freed itself, and the reference that the setter returns must not be used. The container's
/// own operations, such as clear() and erase(), must not remove that value: they would free the
/// container while they work on it.
///
/// A value is used by one thread at a time; values that share an element may be copied and
/// destroyed on different threads.
class QDOObject {
 public:
  /// The numbers are fixed.
  enum Type : std::uint32_t {
    Undefined = 0,  ///< Nothing: the state of a new value and after every failure.
    Bool = 1,
    UInt32 = 2,
    Int32 = 3,
    Int64 = 4,
    UInt64 = 5,
    String = 6,
    Double = 7,
    Vector = 8,
    Map = 9,
    Handle = 10,  ///< A shared object of a kind defined elsewhere.
    Set = 11,
    ProxyId = 12,
    Null = 13,  ///< A deliberate, present null.
  };

  QDOObject() noexcept = default;
  QDOObject(const QDOObject& other) { set(other); }
  /// Takes over the payload without allocating; `other` is left Undefined.
  QDOObject(QDOObject&& other) noexcept;
  virtual ~QDOObject() { destroy(); }

  QDOObject& operator=(const QDOObject& other) { return set(other); }
  QDOObject& operator=(QDOObject&& other) noexcept;

  /// A Bool holding `value`.
  static QDOObject makeBool(bool value) noexcept;

  // Setters. What the value held is released last: the argument may lie in it. Memory exhaustion
  // while a string or a container is made throws QDOException code 1 and leaves Undefined.

  QDOObject& set(const long long& value);  ///< Int64
  /// Int64, from every integer type whose values all fit.
  template <typename Integer,
            typename = std::enable_if_t<std::is_integral_v<Integer> &&
                                        std::numeric_limits<Integer>::digits <=
                                            std::numeric_limits<long long>::digits>>
  QDOObject& set(Integer value) {
    return set(static_cast<const long long&>(static_cast<long long>(value)));
  }
  QDOObject& set(bool value) = delete;  ///< Not an integer: see makeBool().
  QDOObject& set(double value);         ///< Double
  /// String, copied from a zero-terminated text. Null throws QDOException code 2 and changes
  /// nothing.
  QDOObject& set(const char* text);
  /// The initial value of a kind: false, 0, an empty string or container, an empty Handle. A type
  /// above Null gives Undefined.
  QDOObject& set(Type type);
  /// A sharing copy, in constant time. Setting a value to itself leaves it Undefined, on purpose.
  /// A source of a shared kind that holds nothing throws QDOObjectException code 2 without an
  /// object; the value is then left tagged String for a String, Undefined for the other kinds.
  QDOObject& set(const QDOObject& other);
  void setString(const char* text);
  /// ProxyId, taken from another ProxyId or a value that IsUInt(); 0 from anything else.
  QDOObject& setProxyId(const QDOObject& source);

  void createVector();  ///< An empty Vector.
  void createMap();     ///< An empty Map.
  void createSet();     ///< An empty Set.

  // Each releases the holder when the value is of its kind and does nothing otherwise. The type
  // stays; the value then holds nothing.

  void clearString() noexcept { clear(String); }
  void clearVector() noexcept { clear(Vector); }
  void clearMap() noexcept { clear(Map); }
  void clearSet() noexcept { clear(Set); }

  /// Leaves the value Undefined and releases what it held. Nothing can be thrown: elements are held
  /// by std::shared_ptr, which lets no exception out of what it frees.
  void destroy() noexcept;

  Type getType() const noexcept { return type_; }

  /// Whether the value is an integer that fits a signed 32-bit integer. A UInt64 is read as signed
  /// for this, on purpose: 2^64 - 2^31 and above pass and read back negative.
  bool IsInt32() const noexcept;
  /// Whether the value is an integer that fits an unsigned 32-bit integer.
  bool IsUInt() const noexcept;

  // Getters. There are no conversions: a value of another type throws QDOException code 3. A string
  // or container that holds nothing throws QDOObjectException code 2 naming this value.

  bool getBool() const;
  std::int32_t getQDOInt32() const;    ///< Any value that IsInt32().
  std::uint32_t getQDOUInt32() const;  ///< Any value that IsUInt().
  std::int64_t getInt64() const;
  double getDouble() const;
  std::uint32_t getProxyIdentifier() const;
  /// The shared string itself, valid while any copy of this value holds it.
  const std::string& getString() const { return element<std::string>(String); }
  /// The shared vector itself, valid while any copy of this value holds it.
  std::vector<QDOObject>& getVector() { return element<std::vector<QDOObject>>(Vector); }
  const std::vector<QDOObject>& getVector() const {
    return element<std::vector<QDOObject>>(Vector);
  }
  /// The shared map itself, valid while any copy of this value holds it.
  std::map<std::string, QDOObject>& getMap() {
    return element<std::map<std::string, QDOObject>>(Map);
  }
  const std::map<std::string, QDOObject>& getMap() const {
    return element<std::map<std::string, QDOObject>>(Map);
  }

  /// The map member named `key`, inserted as Undefined when absent. Another type throws
  /// QDOObjectException code 3 naming this value, unlike getMap(), on purpose.
  QDOObject& operator[](const std::string& key);

 private:
  /// Shares one string, vector, map, set or handle object among all values that hold it.
  struct Holder {
    std::shared_ptr<void> element;
    Holder* next = nullptr;  ///< While it waits to be freed.
  };

  struct Release {
    void operator()(Holder* holder) const noexcept;
  };
  using Held = std::unique_ptr<Holder, Release>;

  Holder* holder() const noexcept;
  void setHolder(Holder* holder) noexcept;
  void clear(Type type) noexcept;
  /// Empties the value. What it held lives as long as the result, which every caller keeps until it
  /// no longer uses the value or an argument: either may lie in what is freed.
  [[nodiscard]] Held detach() noexcept;
  /// Makes this a `type` that holds what `makeElement` returns: a shared pointer to its element.
  template <typename Make>
  void hold(Type type, Make makeElement);
  template <typename Element>
  Element& element(Type type) const;

  Type type_ = Undefined;
  /// The value's bits, or the address of a Holder that this value owns, or null. One integer, so
  /// that each kind reads defined bits whatever the slot held before.
  std::uint64_t payload_ = 0;
};

#endif  // COMMON_QDO_QDOOBJECT_H_
