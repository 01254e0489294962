#ifndef INCLUDE_METADATAHELPER_H_
#define INCLUDE_METADATAHELPER_H_

#include <map>
#include <string>

#include "QDOObject.h"

/// The metadata that steers a run: the members of the JSON object in "metadata.txt".
///
/// Only the file's last whitespace-separated word is read, on purpose: the object must be written
/// without whitespace. A file that cannot be read counts as empty. Not thread-safe.
class MetadataHelper {
 public:
  /// The one instance, read from the file on the first call. Throws QDOException, code 3, when the
  /// word is not (the beginning of) a JSON object; the next call then tries again.
  static MetadataHelper& getInstance();

  /// Answers from `object`, independently of getInstance(). Throws as getInstance() does.
  explicit MetadataHelper(const QDOObject& object);

  /// The words of a metadata file.
  struct Words {
    unsigned long count = 0;
    std::string last;           ///< Whole; empty if there is no word.
    bool isUnreadable = false;  ///< The words are unknown: the installer counts none.

    /// The text that is parsed: the last word up to its first zero byte.
    std::string Text() const { return last.c_str(); }
  };

  /// Reads the file at `path`, once. Without a word if the file cannot be opened, or cannot be read
  /// to its end. A read that a signal interrupts is repeated.
  static Words ReadWords(const std::string& path);

  MetadataHelper(const MetadataHelper&) = delete;
  MetadataHelper& operator=(const MetadataHelper&) = delete;

  // Each query looks its member up and throws QDOException, code 3, if the member is missing or of
  // another type. A missing one is inserted as Undefined. A number is no boolean here, and an
  // update number must fit a signed 32-bit integer.

  bool shouldClearRegistry();     ///< "clear": wipe the install record first.
  int getUpdateId();              ///< "updateid": the update number to record.
  bool shouldRegenerateRandom();  ///< "regenerate": draw a new random identifier in any case.

 private:
  MetadataHelper();

  std::map<std::string, QDOObject> members_;
};

#endif  // INCLUDE_METADATAHELPER_H_
