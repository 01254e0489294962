#include <algorithm>
#include <stdexcept>

#include "Finding.h"

const std::vector<Rule>& Rules() {
  static const std::vector<Rule> rules = {
      // The package as a whole.
      {"package-missing", Severity::Error, "put the package into the Resources directory"},
      {"package-unreadable", Severity::Error, "pack it anew: it is no zip archive, or cut"},
      {"package-empty", Severity::Warning, "pack the directory that holds the web content"},
      {"directory-damaged", Severity::Error, "pack it anew: its central directory is damaged"},
      {"leading-data", Severity::Warning, "remove the bytes before the archive, or pack it anew"},
      {"trailing-data", Severity::Warning, "remove the bytes after the archive, or pack it anew"},
      {"overlapping-entries", Severity::Error, "pack it anew: no packer writes such archives"},
      {"content-too-large", Severity::Error,
       "do not install it if a stranger made it; if it is meant to be so large, raise --max-size"},
      {"case-collision", Severity::Error, "rename one: the volume may not tell them apart"},
      {"normalization-collision", Severity::Error,
       "rename one: the volume may not tell them apart"},

      // One entry.
      {"missing-directory-entry", Severity::Error,
       "announce each directory by an entry ending in \"/\" before its files, as pack does"},
      {"path-blocked", Severity::Error, "let no name be both a file and a directory"},
      {"climbs-out", Severity::Error, "pack with names that do not lead above the directory"},
      {"name-empty", Severity::Error, "pack it anew: the entry has no name"},
      {"name-too-long", Severity::Error,
       "shorten it: names have at most 511 bytes, their components 255"},
      {"name-not-utf8", Severity::Error, "rename the file in UTF-8 and pack it anew"},
      {"name-unflagged", Severity::Warning,
       "pack with a tool that flags UTF-8 names: others guess their encoding"},
      {"name-unclean", Severity::Warning,
       "pack with plain relative names and \"/\" between their components"},
      {"duplicate-entry", Severity::Error, "keep one of the entries"},
      {"unsupported-method", Severity::Error, "pack with the methods store and deflate only"},
      {"encrypted", Severity::Error, "pack without a password"},
      {"headers-differ", Severity::Error, "pack it anew: local and central headers must agree"},
      {"damaged-entry", Severity::Error, "pack it anew: its local header is damaged"},
      {"damaged-data", Severity::Error, "pack it anew: its data is damaged"},
      {"wrong-crc", Severity::Error, "pack it anew: data and checksum do not belong together"},
      {"expansion-ratio", Severity::Warning, "make sure that the file is meant to be like this"},
      {"link-entry", Severity::Error, "pack what the link leads to (pack --follow)"},
      {"link-broken", Severity::Error, "remove the link, or leave it out (pack --exclude)"},
      {"special-file", Severity::Error, "leave it out (pack --exclude)"},
      {"package-too-large", Severity::Error,
       "leave files out (pack --exclude): a package must stay below 4 GiB"},
      {"required-missing", Severity::Error,
       "make the file, or leave out --require if the package needs none"},
      {"junk-file", Severity::Warning, "leave it out, as pack does"},

      // The metadata.
      {"metadata-missing", Severity::Error, "write metadata.txt, as pack does"},
      {"metadata-blank", Severity::Error,
       "write the object as one word, without any blank or line break in it"},
      {"metadata-not-object", Severity::Error, "write a JSON object, as pack does"},
      {"metadata-syntax", Severity::Warning, "write standard JSON, as pack does"},
      {"metadata-ignored-text", Severity::Warning, "leave nothing but the object in the file"},
      {"metadata-repeated-member", Severity::Warning, "write each member once"},
      {"metadata-member-missing", Severity::Error, "add the member: there is no default"},
      {"metadata-member-type", Severity::Error,
       "\"clear\" and \"regenerate\" take true or false, \"updateid\" an integer, unquoted"},
      {"metadata-updateid-range", Severity::Error, "use a number from -2147483648 to 2147483647"},
      {"metadata-updateid-misread", Severity::Error, "use a number from -2147483648 to 2147483647"},
      {"metadata-updateid-cut", Severity::Warning,
       "use a number from -99999999 to 999999999: the full version takes 9 characters"},
      {"metadata-updateid-absent", Severity::Warning,
       "use another number: -1 is read as no number at all"},

      // The installation.
      {"not-installed", Severity::Error, "run the installer"},
      {"file-missing", Severity::Error, "run the installer"},
      {"file-differs", Severity::Error, "run the installer"},
      {"file-type", Severity::Error, "run the installer"},
      {"file-extra", Severity::Error, "run the installer, or remove it"},
      {"leftover", Severity::Error, "run the installer, or remove it"},
      {"record-missing", Severity::Error, "run the installer"},
      {"record-differs", Severity::Error, "run the installer"},
      {"record-directory", Severity::Error, "run the installer"},
      {"record-version", Severity::Error, "run the installer"},
      {"record-random", Severity::Error, "run the installer with \"regenerate\" true"},
  };
  return rules;
}

void Add(Findings& findings, const std::string& id, const std::string& subject,
         const std::string& reason) {
  const auto rule = std::find_if(Rules().begin(), Rules().end(),
                                 [&id](const Rule& candidate) { return candidate.id == id; });
  if (rule == Rules().end()) {
    throw std::logic_error("no rule " + id);
  }
  findings.push_back({&*rule, subject, reason});
}
