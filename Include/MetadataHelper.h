#ifndef INCLUDE_METADATAHELPER_H_
#define INCLUDE_METADATAHELPER_H_

#include <map>
#include <string>

#include "QDOObject.h"

/// The metadata that controls a run: the members of the JSON object in "metadata.txt", for example
/// `{"clear":false,"updateid":7,"regenerate":false}`.
///
/// Only the last whitespace-separated word of the file is parsed, on purpose: the object must not
/// contain whitespace. A file that cannot be read counts as empty. Not thread-safe.
class MetadataHelper {
 public:
  /// Returns the single instance. The first call reads the file. Throws QDOException with code 3 if
  /// the last word does not start a JSON object. After this exception, the next call reads the file
  /// again.
  static MetadataHelper& getInstance();

  /// Makes an instance that answers from `object`, independent of getInstance(). Throws
  /// QDOException with code 3 if `object` is no Map.
  explicit MetadataHelper(const QDOObject& object);

  /// The words of a metadata file.
  struct Words {
    unsigned long count = 0;
    std::string last;           ///< The complete last word; empty if the file has no word.
    bool isUnreadable = false;  ///< Whether the file could not be read; `count` is then 0.

    /// Returns the parsed text: the last word up to its first zero byte.
    std::string Text() const { return last.substr(0, last.find('\0')); }
  };

  /// Reads the file at `path` once and returns its words. Returns no words, and sets
  /// `isUnreadable`, if the file cannot be opened or cannot be read to the end. A read that a
  /// signal interrupts is repeated.
  static Words ReadWords(const std::string& path);

  MetadataHelper(const MetadataHelper&) = delete;
  MetadataHelper& operator=(const MetadataHelper&) = delete;

  // Each query returns the value of its member. A query throws QDOException with code 3 if the
  // member is missing or has another type. A query for a missing member first inserts the member as
  // Undefined. The number 1 is no boolean. The update number must fit a signed 32-bit integer.

  bool shouldClearRegistry();     ///< "clear": clear the install record first.
  int getUpdateId();              ///< "updateid": the update number to record.
  bool shouldRegenerateRandom();  ///< "regenerate": draw a random identifier in any case.

 private:
  MetadataHelper();

  std::map<std::string, QDOObject> members_;
};

#endif  // INCLUDE_METADATAHELPER_H_
