#include <algorithm>
#include <iterator>
#include <stdexcept>

#include "Finding.h"

namespace {

const Rule kRules[] = {
    // The package as a whole.
    {"package-missing", Severity::Error, "put the package into the Resources directory"},
    {"package-unreadable", Severity::Error,
     "pack it again: it is not a zip archive, or its end is missing"},
    {"package-empty", Severity::Warning, "pack the directory that holds the web content"},
    {"directory-damaged", Severity::Error, "pack it again: its central directory is damaged"},
    {"leading-data", Severity::Warning, "remove the bytes before the archive, or pack it again"},
    {"trailing-data", Severity::Warning, "remove the bytes after the archive, or pack it again"},
    {"overlapping-entries", Severity::Error, "pack it again: no packer writes such archives"},
    {"content-too-large", Severity::Error,
     "do not install it if a stranger made it; if it is meant to be so large, raise --max-size"},
    {"case-collision", Severity::Error, "rename one of them: on some volumes only one can exist"},
    {"normalization-collision", Severity::Error,
     "rename one of them: on some volumes only one can exist"},

    // One entry.
    {"missing-directory-entry", Severity::Error,
     "pack each directory as an entry that ends in \"/\", before its files, as pack does"},
    {"path-blocked", Severity::Error, "rename the file or the directory"},
    {"climbs-out", Severity::Error, "pack it again with names that have no \"..\" component"},
    {"name-empty", Severity::Error, "pack it again: the entry has no name"},
    {"name-too-long", Severity::Error, "shorten it to 511 bytes, and each component to 255"},
    {"name-not-utf8", Severity::Error, "rename the file in UTF-8 and pack it again"},
    {"name-unflagged", Severity::Warning,
     "pack it again with a tool that flags UTF-8 names: readers must guess the encoding"},
    {"name-unclean", Severity::Warning,
     "pack it again with plain relative names and \"/\" between their components"},
    {"duplicate-entry", Severity::Error, "remove one of the entries"},
    {"unsupported-method", Severity::Error,
     "pack it again with the methods store and deflate only"},
    {"encrypted", Severity::Error, "pack it again without a password"},
    {"headers-differ", Severity::Error, "pack it again: the two headers of an entry must agree"},
    {"damaged-entry", Severity::Error, "pack it again: the local header is damaged"},
    {"damaged-data", Severity::Error, "pack it again: the data is damaged"},
    {"wrong-crc", Severity::Error, "pack it again: the data or its checksum has changed"},
    {"expansion-ratio", Severity::Warning, "make sure that the file is meant to be so large"},
    {"link-entry", Severity::Error, "pack what the link points to (pack --follow)"},
    {"link-broken", Severity::Error,
     "correct or remove the link, or leave it out (pack --exclude)"},
    {"special-file", Severity::Error, "leave it out (pack --exclude)"},
    {"package-too-large", Severity::Error,
     "leave files out (pack --exclude): a package must stay below 4 GiB"},
    {"required-missing", Severity::Error,
     "make the file, or leave out --require if the package needs none"},
    {"junk-file", Severity::Warning, "pack it again without the file, as pack does"},

    // The metadata.
    {"metadata-missing", Severity::Error, "write metadata.txt, as pack does"},
    {"metadata-blank", Severity::Error, "write the object without spaces and line breaks"},
    {"metadata-not-object", Severity::Error, "write a JSON object, as pack does"},
    {"metadata-syntax", Severity::Warning, "write standard JSON, as pack does"},
    {"metadata-ignored-text", Severity::Warning,
     "remove everything from the file except the object"},
    {"metadata-repeated-member", Severity::Warning, "write each member once"},
    {"metadata-member-missing", Severity::Error, "add the member: it has no default"},
    {"metadata-member-type", Severity::Error,
     "write true or false for \"clear\" and \"regenerate\", an integer for \"updateid\""},
    {"metadata-updateid-range", Severity::Error, "use a number from -2147483648 to 2147483647"},
    {"metadata-updateid-misread", Severity::Error, "use a number from -2147483648 to 2147483647"},
    {"metadata-updateid-cut", Severity::Warning,
     "use a number from -99999999 to 999999999: the full version holds 9 characters"},
    {"metadata-updateid-absent", Severity::Warning,
     "use another number: -1 means that none is recorded"},

    // The installation.
    {"not-installed", Severity::Error, "run the installer"},
    {"file-missing", Severity::Error, "run the installer"},
    {"file-differs", Severity::Error, "run the installer"},
    {"file-type", Severity::Error, "run the installer"},
    {"file-extra", Severity::Error, "run the installer, or remove it"},
    {"leftover", Severity::Error, "run the installer, or remove it"},
    {"record-missing", Severity::Error, "run the installer"},
    {"record-differs", Severity::Error, "run the installer"},
    {"record-type", Severity::Error, "run webresources install"},
    {"record-directory", Severity::Error, "run the installer"},
    {"record-version", Severity::Error, "run the installer"},
    {"record-random", Severity::Error, "run webresources install, which draws a new one"},
    {"root-blocked", Severity::Error, "remove what is in the place of the directory"},
    {"mode-differs", Severity::Error, "run webresources install, or use --ignore-modes"},
    {"owner-differs", Severity::Error, "run webresources install, or use --ignore-modes"},
    {"receipt-differs", Severity::Error, "run webresources install: another run came after it"},
    {"receipt-damaged", Severity::Error, "run webresources install, which writes a new one"},

    // An installation that is refused or fails.
    {"newer-installed", Severity::Error, "install a newer bundle, or use --allow-downgrade"},
    {"no-space", Severity::Error, "free space on the volume"},
    {"step-failed", Severity::Error, "run the bundle's executable and see why it ends early"},
};

}  // namespace

const std::vector<Rule>& Rules() {
  static const std::vector<Rule> rules(std::begin(kRules), std::end(kRules));
  return rules;
}

Findings ErrorsOf(const Findings& findings) {
  Findings errors;
  std::copy_if(findings.begin(), findings.end(), std::back_inserter(errors),
               [](const Finding& one) { return one.rule->severity == Severity::Error; });
  return errors;
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
