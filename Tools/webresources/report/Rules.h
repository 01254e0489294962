#ifndef TOOLS_WEBRESOURCES_REPORT_RULES_H_
#define TOOLS_WEBRESOURCES_REPORT_RULES_H_

#include "report/Finding.h"

namespace webresources {

// script/lib/findings.py reads this file: "//" begins a section of Documentation/findings.md, and
// "///" is the meaning of a rule.

// The package.

/// The bundle has no package. The installer installs an empty directory.
inline constexpr Rule kPackageMissing{"package-missing", Severity::Error,
                                      "put the package into the Resources directory"};
/// The package is not a zip archive, or its end is missing. The installer installs an empty
/// directory.
inline constexpr Rule kPackageUnreadable{"package-unreadable", Severity::Error,
                                         "pack the directory again"};
/// The package has no entries. The installer installs an empty directory.
inline constexpr Rule kPackageEmpty{"package-empty", Severity::Warning,
                                    "pack the directory that holds the web content"};
/// The central directory ends early or states a wrong number of entries, or the end of central
/// directory record is incomplete.
inline constexpr Rule kDirectoryDamaged{"directory-damaged", Severity::Error,
                                        "pack the directory again"};
/// The file has bytes before the archive.
inline constexpr Rule kLeadingData{"leading-data", Severity::Warning,
                                   "remove these bytes, or pack the directory again"};
/// The file has bytes after the archive.
inline constexpr Rule kTrailingData{"trailing-data", Severity::Warning,
                                    "remove these bytes, or pack the directory again"};
/// Two entries, or an entry and the central directory, share bytes.
inline constexpr Rule kOverlappingEntries{
    "overlapping-entries", Severity::Error,
    "pack the directory again: no packer writes such archives"};
/// The entries can hold more than `--max-size`. No data is read.
inline constexpr Rule kContentTooLarge{
    "content-too-large", Severity::Error,
    "do not install a package of unknown origin; raise --max-size if the size is intended"};
/// The entries name more than 1,000,000 directories. No data is read.
inline constexpr Rule kTooManyDirectories{
    "too-many-directories", Severity::Error,
    "do not install a package of unknown origin; pack fewer directories"};
/// Two names differ only in case.
inline constexpr Rule kCaseCollision{"case-collision", Severity::Error,
                                     "rename one of the two: some volumes can hold only one"};
/// Two names differ only in Unicode normalization.
inline constexpr Rule kNormalizationCollision{
    "normalization-collision", Severity::Error,
    "rename one of the two: some volumes can hold only one"};
/// The bundle's installer is missing, is no regular file, or is not executable. `plan` and
/// `install` also report an installer for another processor or system.
inline constexpr Rule kProgramUnusable{
    "program-unusable", Severity::Error,
    "give the installer the mode 0755, or make the bundle again for this system"};

// An entry of the package.

/// No earlier entry makes the directory of the file. The file is not installed.
inline constexpr Rule kMissingDirectoryEntry{
    "missing-directory-entry", Severity::Error,
    "pack each directory as an entry that ends in \"/\", before its files, as pack does"};
/// The path leads through a file, or a file and a directory have the same name.
inline constexpr Rule kPathBlocked{"path-blocked", Severity::Error,
                                   "rename the file or the directory"};
/// Path traversal: the name leads out of the installed directory. The entry is skipped.
inline constexpr Rule kClimbsOut{
    "climbs-out", Severity::Error,
    "pack the directory again, with names that have no \"..\" component"};
/// The entry has no name. The entry is skipped.
inline constexpr Rule kNameEmpty{"name-empty", Severity::Error, "pack the directory again"};
/// The name has 512 bytes or more, or a component has more than 255 bytes.
inline constexpr Rule kNameTooLong{"name-too-long", Severity::Error,
                                   "shorten the name to 511 bytes, and each component to 255"};
/// The name is not UTF-8. Some volumes refuse such a name.
inline constexpr Rule kNameNotUtf8{"name-not-utf8", Severity::Error,
                                   "rename the file in UTF-8 and pack the directory again"};
/// The name is UTF-8, but the entry has no flag for UTF-8.
inline constexpr Rule kNameUnflagged{
    "name-unflagged", Severity::Warning,
    "pack with a tool that flags UTF-8 names: readers must guess the encoding"};
/// The name is absolute, or has a backslash, an empty component, a "." or ".." component (except a
/// leading "./"), a control character or a zero byte.
inline constexpr Rule kNameUnclean{
    "name-unclean", Severity::Warning,
    "pack with plain relative names and \"/\" between their components"};
/// Two entries write the same file, or make the same directory. The last entry counts.
inline constexpr Rule kDuplicateEntry{"duplicate-entry", Severity::Error,
                                      "remove one of the entries"};
/// The entry is neither stored nor deflated.
inline constexpr Rule kUnsupportedMethod{"unsupported-method", Severity::Error,
                                         "pack with the methods store and deflate only"};
/// The entry needs a password.
inline constexpr Rule kEncrypted{"encrypted", Severity::Error, "pack without a password"};
/// The local header and the central header of the entry contradict each other.
inline constexpr Rule kHeadersDiffer{
    "headers-differ", Severity::Error,
    "pack the directory again: the two headers of an entry must agree"};
/// Other readers refuse the entry: an extra field ends early, the field of Zip64 is too short, flag
/// bit 5 or 6 is set, or the entry needs a version of the format above 4.5.
inline constexpr Rule kUnportableEntry{"unportable-entry", Severity::Error,
                                       "pack the directory again with plain entries, as pack does"};
/// The local header of the entry is damaged. The installer skips a file, and makes a directory.
inline constexpr Rule kDamagedEntry{"damaged-entry", Severity::Error, "pack the directory again"};
/// The data is damaged or ends early. The bytes before the damage are installed.
inline constexpr Rule kDamagedData{"damaged-data", Severity::Error, "pack the directory again"};
/// The data does not match the checksum. The data is installed.
inline constexpr Rule kWrongCrc{"wrong-crc", Severity::Error, "pack the directory again"};
/// The entry has 1 MiB or more, and is 200 times as large as its compressed data.
inline constexpr Rule kExpansionRatio{"expansion-ratio", Severity::Warning,
                                      "make sure that the file is meant to be so large"};
/// The entry is a symbolic link. The installer writes a file with the text of the link.
inline constexpr Rule kLinkEntry{"link-entry", Severity::Error,
                                 "pack the target of the link (pack --follow)"};
/// `pack` only: the target of the link does not exist, or contains the link.
inline constexpr Rule kLinkBroken{
    "link-broken", Severity::Error,
    "correct or remove the link, or leave the link out (pack --exclude)"};
/// `pack` only: the entry is neither a file nor a directory.
inline constexpr Rule kSpecialFile{"special-file", Severity::Error,
                                   "leave the entry out (pack --exclude)"};
/// `pack` only: a file, or all files together, have 4 GiB or more.
inline constexpr Rule kPackageTooLarge{
    "package-too-large", Severity::Error,
    "leave files out (pack --exclude): a package must stay below 4 GiB"};
/// `pack` only: a file of `--require` is not packed.
inline constexpr Rule kRequiredMissing{"required-missing", Severity::Error,
                                       "make the file, or remove the option --require"};
/// The file belongs to macOS, Windows, a version-control system or an editor.
inline constexpr Rule kJunkFile{"junk-file", Severity::Warning,
                                "pack it again without the file, as pack does"};

// The metadata.

/// The bundle has no metadata. The run aborts before any change.
inline constexpr Rule kMetadataMissing{"metadata-missing", Severity::Error,
                                       "write metadata.txt, as pack does"};
/// The object contains whitespace. The installer reads only the last word, and this word is not an
/// object.
inline constexpr Rule kMetadataBlank{"metadata-blank", Severity::Error,
                                     "write the object without spaces and line breaks"};
/// The last word is not a JSON object. The run aborts before any change.
inline constexpr Rule kMetadataNotObject{"metadata-not-object", Severity::Error,
                                         "write a JSON object, as pack does"};
/// The last word is not standard JSON. The installer reads as much as possible.
inline constexpr Rule kMetadataSyntax{"metadata-syntax", Severity::Warning,
                                      "write standard JSON, as pack does"};
/// The installer ignores text before the last word, or after a zero byte in the last word.
inline constexpr Rule kMetadataIgnoredText{"metadata-ignored-text", Severity::Warning,
                                           "remove everything from the file except the object"};
/// The object has the same member several times. The installer reads the first.
inline constexpr Rule kMetadataRepeatedMember{"metadata-repeated-member", Severity::Warning,
                                              "write each member once"};
/// One of the three members is missing. The run aborts.
inline constexpr Rule kMetadataMemberMissing{"metadata-member-missing", Severity::Error,
                                             "add the member: there is no default"};
/// The value of a member has a wrong type. The run aborts.
inline constexpr Rule kMetadataMemberType{
    "metadata-member-type", Severity::Error,
    "write true or false for \"clear\" and \"regenerate\", an integer for \"updateid\""};
/// The update number does not fit 32 bits. The run aborts.
inline constexpr Rule kMetadataUpdateidRange{"metadata-updateid-range", Severity::Error,
                                             "use a number from -2147483648 to 2147483647"};
/// The update number is out of range, but the overflow in the scanner gives a number of 32 bits.
/// The installer records that other number.
inline constexpr Rule kMetadataUpdateidMisread{"metadata-updateid-misread", Severity::Error,
                                               "use a number from -2147483648 to 2147483647"};
/// The full version holds only 9 characters of the update number.
inline constexpr Rule kMetadataUpdateidCut{
    "metadata-updateid-cut", Severity::Warning,
    "use a number from -99999999 to 999999999: the full version holds 9 characters"};
/// The update number is -1, which means "no update number" in the record.
inline constexpr Rule kMetadataUpdateidAbsent{"metadata-updateid-absent", Severity::Warning,
                                              "use another number"};

// The installation. The advice of the report has the command line for "run webresources install".

inline constexpr char kRunInstall[] = "run webresources install";
/// The host has no installed directory.
inline constexpr Rule kNotInstalled{"not-installed", Severity::Error, kRunInstall};
/// A file or directory of the package is missing on the host.
inline constexpr Rule kFileMissing{"file-missing", Severity::Error, kRunInstall};
/// The content of a file differs from the package.
inline constexpr Rule kFileDiffers{"file-differs", Severity::Error, kRunInstall};
/// An installed entry has another type (file, directory, link) than the entry of the package.
inline constexpr Rule kFileType{"file-type", Severity::Error, kRunInstall};
/// The installed directory has a file or directory that is not in the package.
inline constexpr Rule kFileExtra{"file-extra", Severity::Error,
                                 "run webresources install, or remove the entry"};
/// The install root has an entry beside the installed directory.
inline constexpr Rule kLeftover{"leftover", Severity::Error,
                                "run webresources install, or remove the entry"};
/// A value of the record is absent.
inline constexpr Rule kRecordMissing{"record-missing", Severity::Error, kRunInstall};
/// A value of the record differs from the value that the bundle gives.
inline constexpr Rule kRecordDiffers{"record-differs", Severity::Error, kRunInstall};
/// A value of the record has a wrong type or is too long. The value counts as absent.
inline constexpr Rule kRecordType{"record-type", Severity::Error, kRunInstall};
/// The recorded directory does not exist.
inline constexpr Rule kRecordDirectory{"record-directory", Severity::Error, kRunInstall};
/// The full version does not belong to the update number.
inline constexpr Rule kRecordVersion{"record-version", Severity::Error, kRunInstall};
/// The random identifier is not from 1 to 10000.
inline constexpr Rule kRecordRandom{"record-random", Severity::Error,
                                    "run webresources install, which draws a new one"};
/// Another entry is at the path of the install root or of the new directory, so the directory
/// cannot be made.
inline constexpr Rule kRootBlocked{"root-blocked", Severity::Error,
                                   "remove the entry that is in the place of the directory"};
/// A mode of the content is not 0755 or 0644, or other users can write or cannot read a directory
/// or file of the product.
inline constexpr Rule kModeDiffers{"mode-differs", Severity::Error,
                                   "run webresources install; --ignore-modes omits this check"};
/// A file or directory of the product belongs neither to root nor to the owner of the host's root
/// directory.
inline constexpr Rule kOwnerDiffers{"owner-differs", Severity::Error,
                                    "run webresources install; --ignore-modes omits this check"};
/// A directory above the product belongs to another user, or other users can write to the directory
/// or cannot enter it.
inline constexpr Rule kDirectoryAccess{
    "directory-access", Severity::Error,
    "run the command in the reason; --ignore-modes omits this check"};
/// The receipt describes another update or package. A run without `install` came later.
inline constexpr Rule kReceiptDiffers{"receipt-differs", Severity::Error,
                                      "run webresources install"};
/// An installation began and was not completed.
inline constexpr Rule kInstallUnfinished{"install-unfinished", Severity::Error,
                                         "run webresources install"};
/// The receipt does not follow its schema.
inline constexpr Rule kReceiptDamaged{"receipt-damaged", Severity::Error,
                                      "run webresources install, which writes a new one"};

// An installation that is refused or fails.

/// `plan` and `install`: the host has a newer update than the bundle.
inline constexpr Rule kNewerInstalled{"newer-installed", Severity::Error,
                                      "install a newer bundle, or use --allow-downgrade"};
/// `plan` and `install`: the volume has no space, or too few inodes, for the private copy and the
/// new content beside the installed content.
inline constexpr Rule kNoSpace{"no-space", Severity::Error, "free space on the volume"};
/// `install` only: the installer ended with a signal, or with another exit status than 0.
inline constexpr Rule kStepFailed{"step-failed", Severity::Error,
                                  "compare the installer in Contents/MacOS with the original; "
                                  "after SIGKILL, look for a lack of memory"};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_REPORT_RULES_H_
