#ifndef TOOLS_WEBRESOURCES_REPORT_RULES_H_
#define TOOLS_WEBRESOURCES_REPORT_RULES_H_

#include "report/Finding.h"

namespace webresources {

// The package as a whole.
inline constexpr Rule kPackageMissing{"package-missing", Severity::Error,
                                      "put the package into the Resources directory"};
inline constexpr Rule kPackageUnreadable{
    "package-unreadable", Severity::Error,
    "pack it again: it is not a zip archive, or its end is missing"};
inline constexpr Rule kPackageEmpty{"package-empty", Severity::Warning,
                                    "pack the directory that holds the web content"};
inline constexpr Rule kDirectoryDamaged{"directory-damaged", Severity::Error,
                                        "pack it again: its central directory is damaged"};
inline constexpr Rule kLeadingData{"leading-data", Severity::Warning,
                                   "remove the bytes before the archive, or pack it again"};
inline constexpr Rule kTrailingData{"trailing-data", Severity::Warning,
                                    "remove the bytes after the archive, or pack it again"};
inline constexpr Rule kOverlappingEntries{"overlapping-entries", Severity::Error,
                                          "pack it again: no packer writes such archives"};
inline constexpr Rule kContentTooLarge{
    "content-too-large", Severity::Error,
    "do not install it if a stranger made it; if it is meant to be so large, raise --max-size"};
inline constexpr Rule kTooManyDirectories{
    "too-many-directories", Severity::Error,
    "do not install it if a stranger made it; else pack fewer directories"};
inline constexpr Rule kCaseCollision{"case-collision", Severity::Error,
                                     "rename one of them: on some volumes only one can exist"};
inline constexpr Rule kNormalizationCollision{
    "normalization-collision", Severity::Error,
    "rename one of them: on some volumes only one can exist"};

inline constexpr Rule kProgramUnusable{
    "program-unusable", Severity::Error,
    "give the installer the mode 0755, or make the bundle again"};

// One entry.
inline constexpr Rule kMissingDirectoryEntry{
    "missing-directory-entry", Severity::Error,
    "pack each directory as an entry that ends in \"/\", before its files, as pack does"};
inline constexpr Rule kPathBlocked{"path-blocked", Severity::Error,
                                   "rename the file or the directory"};
inline constexpr Rule kClimbsOut{"climbs-out", Severity::Error,
                                 "pack it again with names that have no \"..\" component"};
inline constexpr Rule kNameEmpty{"name-empty", Severity::Error,
                                 "pack it again: the entry has no name"};
inline constexpr Rule kNameTooLong{"name-too-long", Severity::Error,
                                   "shorten it to 511 bytes, and each component to 255"};
inline constexpr Rule kNameNotUtf8{"name-not-utf8", Severity::Error,
                                   "rename the file in UTF-8 and pack it again"};
inline constexpr Rule kNameUnflagged{
    "name-unflagged", Severity::Warning,
    "pack it again with a tool that flags UTF-8 names: readers must guess the encoding"};
inline constexpr Rule kNameUnclean{
    "name-unclean", Severity::Warning,
    "pack it again with plain relative names and \"/\" between their components"};
inline constexpr Rule kDuplicateEntry{"duplicate-entry", Severity::Error,
                                      "remove one of the entries"};
inline constexpr Rule kUnsupportedMethod{"unsupported-method", Severity::Error,
                                         "pack it again with the methods store and deflate only"};
inline constexpr Rule kEncrypted{"encrypted", Severity::Error, "pack it again without a password"};
inline constexpr Rule kHeadersDiffer{"headers-differ", Severity::Error,
                                     "pack it again: the two headers of an entry must agree"};
inline constexpr Rule kDamagedEntry{"damaged-entry", Severity::Error,
                                    "pack it again: the local header is damaged"};
inline constexpr Rule kDamagedData{"damaged-data", Severity::Error,
                                   "pack it again: the data is damaged"};
inline constexpr Rule kWrongCrc{"wrong-crc", Severity::Error,
                                "pack it again: the data or its checksum has changed"};
inline constexpr Rule kExpansionRatio{"expansion-ratio", Severity::Warning,
                                      "make sure that the file is meant to be so large"};
inline constexpr Rule kLinkEntry{"link-entry", Severity::Error,
                                 "pack what the link points to (pack --follow)"};
inline constexpr Rule kLinkBroken{"link-broken", Severity::Error,
                                  "correct or remove the link, or leave it out (pack --exclude)"};
inline constexpr Rule kSpecialFile{"special-file", Severity::Error,
                                   "leave it out (pack --exclude)"};
inline constexpr Rule kPackageTooLarge{
    "package-too-large", Severity::Error,
    "leave files out (pack --exclude): a package must stay below 4 GiB"};
inline constexpr Rule kRequiredMissing{
    "required-missing", Severity::Error,
    "make the file, or leave out --require if the package needs none"};
inline constexpr Rule kJunkFile{"junk-file", Severity::Warning,
                                "pack it again without the file, as pack does"};

// The metadata.
inline constexpr Rule kMetadataMissing{"metadata-missing", Severity::Error,
                                       "write metadata.txt, as pack does"};
inline constexpr Rule kMetadataBlank{"metadata-blank", Severity::Error,
                                     "write the object without spaces and line breaks"};
inline constexpr Rule kMetadataNotObject{"metadata-not-object", Severity::Error,
                                         "write a JSON object, as pack does"};
inline constexpr Rule kMetadataSyntax{"metadata-syntax", Severity::Warning,
                                      "write standard JSON, as pack does"};
inline constexpr Rule kMetadataIgnoredText{"metadata-ignored-text", Severity::Warning,
                                           "remove everything from the file except the object"};
inline constexpr Rule kMetadataRepeatedMember{"metadata-repeated-member", Severity::Warning,
                                              "write each member once"};
inline constexpr Rule kMetadataMemberMissing{"metadata-member-missing", Severity::Error,
                                             "add the member: it has no default"};
inline constexpr Rule kMetadataMemberType{
    "metadata-member-type", Severity::Error,
    "write true or false for \"clear\" and \"regenerate\", an integer for \"updateid\""};
inline constexpr Rule kMetadataUpdateidRange{"metadata-updateid-range", Severity::Error,
                                             "use a number from -2147483648 to 2147483647"};
inline constexpr Rule kMetadataUpdateidMisread{"metadata-updateid-misread", Severity::Error,
                                               "use a number from -2147483648 to 2147483647"};
inline constexpr Rule kMetadataUpdateidCut{
    "metadata-updateid-cut", Severity::Warning,
    "use a number from -99999999 to 999999999: the full version holds 9 characters"};
inline constexpr Rule kMetadataUpdateidAbsent{"metadata-updateid-absent", Severity::Warning,
                                              "use another number: -1 means that none is recorded"};

// The installation. Where the fix is to run `webresources install`, the report's advice has the
// command line.
inline constexpr char kRunInstall[] = "run webresources install";
inline constexpr Rule kNotInstalled{"not-installed", Severity::Error, kRunInstall};
inline constexpr Rule kFileMissing{"file-missing", Severity::Error, kRunInstall};
inline constexpr Rule kFileDiffers{"file-differs", Severity::Error, kRunInstall};
inline constexpr Rule kFileType{"file-type", Severity::Error, kRunInstall};
inline constexpr Rule kFileExtra{"file-extra", Severity::Error,
                                 "run webresources install, or remove it"};
inline constexpr Rule kLeftover{"leftover", Severity::Error,
                                "run webresources install, or remove it"};
inline constexpr Rule kRecordMissing{"record-missing", Severity::Error, kRunInstall};
inline constexpr Rule kRecordDiffers{"record-differs", Severity::Error, kRunInstall};
inline constexpr Rule kRecordType{"record-type", Severity::Error, kRunInstall};
inline constexpr Rule kRecordDirectory{"record-directory", Severity::Error, kRunInstall};
inline constexpr Rule kRecordVersion{"record-version", Severity::Error, kRunInstall};
inline constexpr Rule kRecordRandom{"record-random", Severity::Error,
                                    "run webresources install, which draws a new one"};
inline constexpr Rule kRootBlocked{"root-blocked", Severity::Error,
                                   "remove what is in the place of the directory"};
inline constexpr Rule kModeDiffers{"mode-differs", Severity::Error,
                                   "run webresources install, or use --ignore-modes"};
inline constexpr Rule kOwnerDiffers{"owner-differs", Severity::Error,
                                    "run webresources install, or use --ignore-modes"};
inline constexpr Rule kDirectoryAccess{"directory-access", Severity::Error,
                                       "run the command in the reason, or use --ignore-modes"};
inline constexpr Rule kReceiptDiffers{"receipt-differs", Severity::Error,
                                      "run webresources install: another run came after it"};
inline constexpr Rule kInstallUnfinished{"install-unfinished", Severity::Error,
                                         "run webresources install"};
inline constexpr Rule kReceiptDamaged{"receipt-damaged", Severity::Error,
                                      "run webresources install, which writes a new one"};

// An installation that is refused or fails.
inline constexpr Rule kNewerInstalled{"newer-installed", Severity::Error,
                                      "install a newer bundle, or use --allow-downgrade"};
inline constexpr Rule kNoSpace{"no-space", Severity::Error, "free space on the volume"};
inline constexpr Rule kStepFailed{"step-failed", Severity::Error,
                                  "run the bundle's executable and see why it ends early"};

}  // namespace webresources

#endif  // TOOLS_WEBRESOURCES_REPORT_RULES_H_
