#include "machine/Receipt.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>

#include "InstallerConstants.h"
#include "report/Report.h"
#include "report/Rules.h"
#include "support/AtomicFile.h"
#include "support/Files.h"
#include "support/Text.h"

namespace webresources {

namespace {

constexpr char kFileName[] = "WebResources.receipt.json";

Json ToJson(const FileItem& item) {
  Json json = {{"type", item.type == FileItem::Type::Directory ? "directory" : "file"}};
  PutName(json, "path", item.path);
  if (item.type == FileItem::Type::File) {
    json["size"] = item.size;
    json["sha256"] = DigestText(*item.sha256);
  }
  char mode[8] = {};
  std::snprintf(mode, sizeof mode, "%04o", *item.mode);
  json["mode"] = mode;
  return json;
}

Json ToJson(const Receipt& receipt) {
  Json json = {{"tool", "webresources"},       {"version", receipt.version},
               {"time", receipt.time},         {"product", PLIST_SECTION_KEY},
               {"updateId", receipt.updateId}, {"packageSha256", receipt.packageSha256},
               {"tree", Json::array()}};
  for (const FileItem& item : receipt.tree) {
    json["tree"].push_back(ToJson(item));
  }
  return json;
}

/// Throws std::exception if `json` is not an item of a receipt.
FileItem ItemOf(const Json& json) {
  FileItem item;
  item.path = NameOf(json, "path");
  item.mode = static_cast<unsigned int>(std::stoul(json.at("mode").get<std::string>(), nullptr, 8));
  if (json.at("type") == "file") {
    item.type = FileItem::Type::File;
    item.size = json.at("size").get<std::uint64_t>();
    item.sha256 = DigestFrom(json.at("sha256").get<std::string>());
  }
  return item;
}

/// Throws std::exception if `json` is not a receipt.
Receipt ReceiptOf(const Json& json) {
  if (json.at("product") != PLIST_SECTION_KEY) {
    throw Error("read", "the receipt", "it is of another product");
  }
  Receipt receipt;
  receipt.updateId = json.at("updateId").get<int>();
  receipt.packageSha256 = json.at("packageSha256").get<std::string>();
  receipt.time = json.at("time").get<std::string>();
  receipt.version = json.at("version").get<std::string>();
  for (const Json& item : json.at("tree")) {
    receipt.tree.push_back(ItemOf(item));
  }
  std::sort(receipt.tree.begin(), receipt.tree.end(),
            [](const FileItem& a, const FileItem& b) { return a.path < b.path; });
  return receipt;
}

}  // namespace

std::string ReceiptPath(const std::string& hostRoot) {
  return BesideInstallRoot(hostRoot, kFileName);
}

std::optional<Receipt> ReadReceipt(const std::string& hostRoot, Findings& findings) {
  const std::string path = ReceiptPath(hostRoot);
  if (StateOf(path) == FileState::Missing) {
    return std::nullopt;
  }
  std::string reason = "it is a directory";
  try {
    if (!IsDirectory(path)) {
      std::ifstream stream(path);
      return ReceiptOf(Json::parse(stream));
    }
  } catch (const Json::parse_error& error) {
    reason = "it is not JSON: byte " + std::to_string(error.byte) + " is wrong";
  } catch (const Error& error) {
    reason = error.reason();
  } catch (const std::exception&) {
    reason = "it does not have the members of a receipt";
  }
  Add(findings, kReceiptDamaged, path, reason);
  return std::nullopt;
}

void WriteReceipt(const std::string& hostRoot, Receipt receipt) {
  receipt.time = TimeText(std::time(nullptr));
  receipt.version = WEBRESOURCES_VERSION;
  AtomicFile file(ReceiptPath(hostRoot));
  file.Write(Text(ToJson(receipt)));
  file.CommitDurably();
}

void RemoveReceipt(const std::string& hostRoot) {
  const std::string path = ReceiptPath(hostRoot);
  if (unlink(path.c_str()) != 0 && errno != ENOENT) {
    throw Error::FromErrno("remove", path);
  }
}

bool FindInReceipt(const Receipt& receipt, const Installation& installation, Findings& findings) {
  const auto recorded = UpdateIdOf(installation.record);
  if (receipt.updateId != recorded) {
    const std::string found = recorded ? "update " + std::to_string(*recorded) : "no update";
    Add(findings, kReceiptDiffers, ReceiptPath(installation.hostRoot),
        "it is of update " + std::to_string(receipt.updateId) + ", and " + found + " is recorded");
  }
  return receipt.updateId == recorded;
}

}  // namespace webresources
