#ifndef INCLUDE_METADATAHELPER_H_
#define INCLUDE_METADATAHELPER_H_

#include <map>
#include <string>

#include "QDOObject.h"

/// The metadata that steers a run: the members of the JSON object in "metadata.txt".
///
/// Only the file's last whitespace-separated word is read, on purpose: the object must be written
/// without blanks. A file that cannot be read counts as empty. Not thread-safe.
class MetadataHelper {
 public:
  /// The one instance, read from the file on the first call. Throws QDOException, code 3, when the
  /// word is not (the beginning of) a JSON object; the next call then tries again.
  static MetadataHelper& getInstance();

  /// An instance of its own, read from the file at `path`; throws as getInstance() does.
  explicit MetadataHelper(const std::string& path);

  /// The word that counts of the file at `path`, up to its first zero byte; empty when there is
  /// none or the file cannot be read.
  static std::string LastWord(const std::string& path);

  MetadataHelper(const MetadataHelper&) = delete;
  MetadataHelper& operator=(const MetadataHelper&) = delete;

  // Each query looks its member up anew and throws QDOException, code 3, when it is missing (which
  // leaves an Undefined member behind) or of another type: numbers are not booleans here, and an
  // update number must fit a signed 32-bit integer.

  bool shouldClearRegistry();     ///< "clear": wipe the install record first.
  int getUpdateId();              ///< "updateid": the update number to record.
  bool shouldRegenerateRandom();  ///< "regenerate": draw a new random identifier in any case.

 private:
  MetadataHelper();

  std::map<std::string, QDOObject> members_;
};

#endif  // INCLUDE_METADATAHELPER_H_
