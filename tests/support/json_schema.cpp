// SPDX-License-Identifier: Apache-2.0
#include "tests/support/json_schema.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <stdexcept>

#include "tests/support/child_process.h"

namespace {

/// One validator for all texts of this process: it takes a moment to start.
class Validator {
 public:
  Validator() {
    std::array<int, 2> texts{};
    std::array<int, 2> replies{};
    if (pipe2(texts.data(), O_CLOEXEC) != 0 || pipe2(replies.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("pipe2() failed");
    }
    process_.emplace(ChildProcess::Options{
        {PYTHON3, VALIDATE_JSON, SCHEMA_FILE}, {{0, texts[0]}, {1, replies[1]}}, {{"LC_ALL", "C.UTF-8"}}});
    close(texts[0]);
    close(replies[1]);
    texts_ = fdopen(texts[1], "w");
    replies_ = fdopen(replies[0], "r");
  }
  ~Validator() {
    fclose(texts_);
    fclose(replies_);
  }
  Validator(const Validator&) = delete;
  Validator& operator=(const Validator&) = delete;

  std::string reply(const std::string& json) {
    fprintf(texts_, "%zu\n", json.size());
    fwrite(json.data(), 1, json.size(), texts_);
    fflush(texts_);
    std::string line;
    for (int c = fgetc(replies_); c != '\n'; c = fgetc(replies_)) {
      if (c == EOF) {
        throw std::runtime_error("the validator of JSON has ended");
      }
      line += static_cast<char>(c);
    }
    return line;
  }

 private:
  std::optional<ChildProcess> process_;
  FILE* texts_ = nullptr;
  FILE* replies_ = nullptr;
};

}  // namespace

std::string schema_error(const std::string& json) {
  static Validator validator;
  const auto reply = validator.reply(json);
  return reply == "\"valid\"" ? std::string() : reply;
}
