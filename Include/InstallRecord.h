#ifndef INCLUDE_INSTALLRECORD_H_
#define INCLUDE_INSTALLRECORD_H_

#include <optional>
#include <string>

#include "OSUtils.h"

/// The install record of a host, for programs that look at an installation. The installer does not
/// need this header. OSUtils has the rules: the keys, and which values count as absent.
struct InstallRecord {
  /// How a value is stored, which WebRegInfo does not tell.
  enum class State {
    Absent,
    Usable,
    Unusable,  ///< Of another type than its key's, or a text of more than 127 bytes.
  };

  WebRegInfo values;  ///< As OSUtils::OldInfo() fills them.
  State random = State::Absent;
  State updateId = State::Absent;
  State installPath = State::Absent;
  State fullVersion = State::Absent;
};

/// Reads the record of the host whose file system is mounted at `hostRoot`; an empty `hostRoot`
/// means this host. The values and their states are from one read. A record that does not exist is
/// read as one without values. Returns nothing if the record cannot be read; errno then tells the
/// reason.
std::optional<InstallRecord> ReadRecord(const std::string& hostRoot);

/// Returns the place of that host's record, for people: a path or, on a Mac, the name of the
/// domain.
std::string RecordLocation(const std::string& hostRoot);

/// Removes the random identifier from that host's record, so that the next run draws one. Returns
/// whether the record was written.
bool RemoveRandom(const std::string& hostRoot);

/// Removes the four values of that host's record. Values of other programs stay; on Linux, a file
/// without any is removed. Returns false if that fails; errno then tells the reason.
bool RemoveRecord(const std::string& hostRoot);

#endif  // INCLUDE_INSTALLRECORD_H_
