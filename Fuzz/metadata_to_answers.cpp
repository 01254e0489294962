// Metadata file to answers. For every content of the file,
//  - the last word counts, up to the first zero byte of the word;
//  - loading throws QDOException with code 3, unless that word is read as a map;
//  - a boolean member answers "clear" and "regenerate", and a 32-bit integer answers "updateid";
//    any other member and a missing member throw QDOException with code 3;
//  - a repeated query, another order of queries, and another load give the same answers.

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <limits>

#include "Fuzz.h"
#include "MetadataHelper.h"
#include "QDOException.h"
#include "QDOJSONParser.h"

namespace {

template <typename Query>
std::string Answer(Query query) {
  try {
    return std::to_string(query());
  } catch (const QDOException& exception) {
    return "exception " + std::to_string(exception.getCode());
  }
}

/// Returns the helper's answers, asked in forward or backward order.
std::string Answers(MetadataHelper& metadata, bool isBackwards) {
  const auto clear = [&] { return Answer([&] { return metadata.shouldClearRegistry(); }); };
  const auto update = [&] { return Answer([&] { return metadata.getUpdateId(); }); };
  const auto regenerate = [&] { return Answer([&] { return metadata.shouldRegenerateRandom(); }); };
  std::string answers[3];
  if (isBackwards) {
    answers[2] = regenerate();
    answers[1] = update();
    answers[0] = clear();
  } else {
    answers[0] = clear();
    answers[1] = update();
    answers[2] = regenerate();
  }
  return answers[0] + ", " + answers[1] + ", " + answers[2];
}

std::string AnswersOfFile(const std::string& path) {
  std::string answers;
  const std::string loading = Answer([&] {
    MetadataHelper metadata(QDOJSONParser::fromJSON(MetadataHelper::ReadWords(path).Text(), true));
    answers = Answers(metadata, false);
    RequireEqual(answers, Answers(metadata, true), "asked again");
    return 0;
  });
  return answers.empty() ? loading : answers;
}

// A second implementation of the rules ------------------------------------------------------------

std::string LastWord(const std::string& text) {
  static const char kBlanks[] = " \t\n\v\f\r";
  const std::size_t last = text.find_last_not_of(kBlanks);
  if (last == std::string::npos) {
    return {};
  }
  const std::size_t before = text.find_last_of(kBlanks, last);
  return text.substr(before + 1, last - before).c_str();
}

std::string BooleanAnswer(const QDOObject& member) {
  return member.getType() == QDOObject::Bool ? std::to_string(member.getBool()) : "exception 3";
}

std::string NumberAnswer(const QDOObject& member) {
  using Limits = std::numeric_limits<std::int32_t>;
  return member.getType() == QDOObject::Int64 && member.getInt64() >= Limits::min() &&
                 member.getInt64() <= Limits::max()
             ? std::to_string(member.getInt64())
             : "exception 3";
}

std::string ExpectedAnswers(const std::string& word) {
  QDOObject members = QDOJSONParser::fromJSON(word, true);
  if (members.getType() != QDOObject::Map) {
    return "exception 3";
  }
  return BooleanAnswer(members["clear"]) + ", " + NumberAnswer(members["updateid"]) + ", " +
         BooleanAnswer(members["regenerate"]);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("metadata.txt", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  Require(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size),
          "the file is written");
  const std::string word = LastWord(std::string(reinterpret_cast<const char*>(data), size));
  RequireEqual(word, MetadataHelper::ReadWords(path).Text(), "last word");
  const std::string answers = AnswersOfFile(path);
  RequireEqual(ExpectedAnswers(word), answers, "answers");
  RequireEqual(answers, AnswersOfFile(path), "loaded again");
  return 0;
}
