#ifndef TESTS_SUPPORT_ZIPBUILDER_H_
#define TESTS_SUPPORT_ZIPBUILDER_H_

#include <zlib.h>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

/// Returns raw deflate data for `bytes`. With another `flush`, more data may follow.
inline std::string Deflated(const std::string& bytes, int flush = Z_FINISH) {
  z_stream stream = {};
  if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL,
                   Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("no deflate");
  }
  std::string out(deflateBound(&stream, bytes.length()) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.length());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.length());
  deflate(&stream, flush);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return out;
}

inline std::uint32_t Crc(const std::string& bytes) {
  return static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.length())));
}

enum Method : std::uint16_t { kStored = 0, kDeflated = 8 };

/// One entry of an archive. A test may give every field a wrong value.
struct ZipEntry {
  std::string name;
  std::string data;  ///< The stored bytes.
  std::uint16_t method = kStored;
  std::uint32_t crc = 0;
  std::uint32_t size = 0;        ///< The stated size of the content.
  std::uint32_t compressed = 0;  ///< The stated size of `data`.
  std::uint16_t localMethod = 0;
  std::uint32_t localSignature = 0x04034b50;
  std::uint32_t centralSignature = 0x02014b50;
  std::uint32_t attributes = 0;
  std::uint16_t version = 20;  ///< Needed to extract.
  std::uint16_t flags = 0;
  std::string extra;  ///< The extra fields of the central header.
  std::string localExtra;
  std::optional<std::uint16_t> localFlags;  ///< The flags in the local header, if different.
  std::optional<std::string> localName;     ///< The name in the local header, if different.
  std::optional<std::uint32_t> localCrc;
  std::optional<std::uint32_t> offset;  ///< The stated offset of the local header.

  ZipEntry(std::string entryName, const std::string& contents, Method entryMethod = kStored)
      : name(std::move(entryName)),
        data(entryMethod == kDeflated ? Deflated(contents) : contents),
        method(entryMethod),
        crc(Crc(contents)),
        size(static_cast<std::uint32_t>(contents.length())),
        compressed(static_cast<std::uint32_t>(data.length())),
        localMethod(entryMethod) {}
};

/// Returns the bytes of an archive with `entries`, in their order.
inline std::string Zip(const std::vector<ZipEntry>& entries) {
  std::string bytes;
  std::string central;
  const auto put = [](std::string& to, std::uint64_t value, int count) {
    for (int index = 0; index < count; ++index) {
      to += static_cast<char>(value >> (8 * index));
    }
  };
  for (const ZipEntry& entry : entries) {
    const auto offset = static_cast<std::uint32_t>(bytes.length());
    // Writes the fields of both headers, from "version needed" to the length of the extra field.
    const auto common = [&put, &entry](std::string& to, std::uint16_t method, std::uint32_t crc,
                                       const std::string& name, std::uint16_t flags,
                                       const std::string& extra) {
      put(to, entry.version, 2);
      put(to, flags, 2);
      put(to, method, 2);
      put(to, 0x00210000, 4);  // 1980-01-01
      put(to, crc, 4);
      put(to, entry.compressed, 4);
      put(to, entry.size, 4);
      put(to, static_cast<std::uint32_t>(name.length()), 2);
      put(to, extra.length(), 2);
    };
    put(bytes, entry.localSignature, 4);
    const std::string& localName = entry.localName ? *entry.localName : entry.name;
    common(bytes, entry.localMethod, entry.localCrc.value_or(entry.crc), localName,
           entry.localFlags.value_or(entry.flags), entry.localExtra);
    bytes += localName + entry.localExtra + entry.data;
    put(central, entry.centralSignature, 4);
    put(central, 0x0314, 2);  // made on a system with file modes
    common(central, entry.method, entry.crc, entry.name, entry.flags, entry.extra);
    put(central, 0, 6);
    put(central, entry.attributes, 4);
    put(central, entry.offset.value_or(offset), 4);
    central += entry.name + entry.extra;
  }
  const auto count = static_cast<std::uint32_t>(entries.size());
  const auto offset = static_cast<std::uint32_t>(bytes.length());
  bytes += central;
  put(bytes, 0x06054b50, 4);
  put(bytes, 0, 4);
  put(bytes, count, 2);
  put(bytes, count, 2);
  put(bytes, static_cast<std::uint32_t>(central.length()), 4);
  put(bytes, offset, 4);
  put(bytes, 0, 2);
  return bytes;
}

#endif  // TESTS_SUPPORT_ZIPBUILDER_H_
