#ifndef TOOLS_WEBRESOURCES_SUPPORT_FILES_H_
#define TOOLS_WEBRESOURCES_SUPPORT_FILES_H_

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Descriptor.h"
#include "Sha256.h"

namespace webresources {

/// Operations on files. Each operation returns a result or throws Error.

/// Returns whether there is a file or directory at `path` that can be opened. Throws Error if the
/// state is unknown, if `path` cannot be read, or if `path` is neither a regular file nor a
/// directory: the opening of another entry could wait forever.
bool IsPresent(const std::string& path);

/// Returns whether there is an entry at `path`. A link counts, even if the target is missing.
/// Throws Error if the state is unknown.
bool Exists(const std::string& path);

/// Returns the status of `path`, with links followed. Throws Error if the status cannot be read.
struct stat StatusOf(const std::string& path);

/// Returns whether `path`, with links followed, is a directory. Throws Error if this cannot be
/// determined.
bool IsDirectory(const std::string& path);

/// Returns the names in the directory at `path` without "." and "..", sorted by their bytes. Throws
/// Error if the directory cannot be read.
std::vector<std::string> NamesIn(const std::string& path);

/// The space that a file system has left for an ordinary user.
struct FreeSpace {
  std::uint64_t bytes;
  std::uint64_t files;  ///< Files and directories; the largest number if unlimited.
};

/// Returns the free space of the file system that holds `path`. Throws Error if the space cannot be
/// read.
FreeSpace FreeSpaceAt(const std::string& path);

enum class Links { Refuse, Follow };

/// A regular file that is open for reading. The path is resolved once: content and status belong to
/// the same file, even if another process replaces the file.
class InputFile {
 public:
  /// Opens the file at `path`. Throws Error if the file cannot be opened, is not a regular file, or
  /// is a link that `links` refuses.
  InputFile(const std::string& path, Links links);

  /// Opens the file at `name`, relative to the open directory `directory`. `path` names the file in
  /// errors.
  InputFile(int directory, const std::string& name, std::string path, Links links);

  const struct stat& status() const { return status_; }

  /// Returns the open file. The object closes the file.
  int descriptor() const { return *descriptor_; }

  /// Returns a stream of the remaining bytes. Do not read from the object afterwards. Throws Error
  /// if there is no memory for the stream.
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> TakeStream();

 private:
  std::string path_;
  Descriptor descriptor_;
  struct stat status_ = {};
};

/// Gives the content of the file that is open as `file` to `take` in chunks, from the beginning.
/// `path` names the file in errors. Throws Error if the file cannot be read, or if the user stops
/// the command; see CatchInterruptions().
void ForEachChunk(int file, const std::string& path,
                  const std::function<void(const char* bytes, std::size_t length)>& take);

/// Returns `path` as an absolute path without links. Throws Error if `path` does not exist.
std::string RealPath(const std::string& path);

/// Makes the directory at `path` with all missing parents. Throws Error if `path` is no directory
/// afterwards.
void MakeDirectories(const std::string& path);

/// Returns whether the file open as `descriptor` is the file at `path`, links not followed. Another
/// process may have removed or replaced the file since the opening.
bool IsAt(int descriptor, const std::string& path);

/// Returns the digest of the regular file at `path`, links followed, and shows the progress. Throws
/// Error if the file cannot be read, or if the user stops the command.
Sha256::Digest DigestOfFile(const std::string& path);

/// Returns `digest` in hexadecimal.
std::string DigestText(const Sha256::Digest& digest);

/// Returns the digest for a text of DigestText(). Throws std::invalid_argument for any other text.
Sha256::Digest DigestFrom(const std::string& text);

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_SUPPORT_FILES_H_
