// SPDX-License-Identifier: Apache-2.0
#include "simulator/fault.h"

#include <algorithm>
#include <array>
#include <iterator>

#include "simulator/command_words.h"

namespace {

constexpr unsigned LARGEST_COUNT = 4096;
constexpr unsigned LARGEST_PAUSE = 60000;

/// Decodes to status code 0xffff, which is unused, and to counters of 0xffff.
constexpr unsigned char GARBAGE = 0xff;

enum class Argument { None, Required, Optional };

struct FaultForm {
  std::string_view name;
  Fault::Kind kind;
  bool count;
  Argument pause;
  unsigned default_pause;
  bool limitable;
  std::string_view usage;
};

using enum Fault::Kind;
constexpr std::array<FaultForm, 10> FAULT_FORMS = {{
    {"none", None, false, Argument::None, 0, false, "none"},
    {"silent", Silent, false, Argument::None, 0, true, "silent [status|levels]"},
    {"short", Short, true, Argument::None, 0, true, "short N [status|levels]"},
    {"drip", Drip, false, Argument::Optional, 10, true, "drip [MS] [status|levels]"},
    {"split", Split, true, Argument::Optional, 200, true, "split N [MS] [status|levels]"},
    {"long", Long, true, Argument::None, 0, true, "long N [status|levels]"},
    {"garbage", Garbage, false, Argument::None, 0, true, "garbage [status|levels]"},
    {"slow", Slow, false, Argument::Required, 0, true, "slow MS [status|levels]"},
    {"close", Close, true, Argument::None, 0, true, "close N [status|levels]"},
    {"refuse", Refuse, false, Argument::None, 0, false, "refuse"},
}};

std::optional<RequestKind> parse_request_kind(std::string_view word) {
  if (word == "status") {
    return RequestKind::Status;
  }
  if (word == "levels") {
    return RequestKind::Levels;
  }
  return std::nullopt;
}

/// @param words  the words after the fault's name.
std::optional<Fault> parse_arguments(const FaultForm& form, std::span<const std::string_view> words) {
  Fault fault;
  fault.kind = form.kind;
  fault.pause = std::chrono::milliseconds(form.default_pause);
  if (form.limitable && !words.empty()) {
    fault.only = parse_request_kind(words.back());
    words = words.first(words.size() - (fault.only ? 1 : 0));
  }
  if (form.count) {
    const auto count = words.empty() ? std::nullopt : parse_number(words.front(), LARGEST_COUNT);
    if (!count) {
      return std::nullopt;
    }
    fault.count = *count;
    words = words.subspan(1);
  }
  if (form.pause == Argument::Required || (form.pause == Argument::Optional && !words.empty())) {
    const auto pause = words.empty() ? std::nullopt : parse_number(words.front(), LARGEST_PAUSE);
    if (!pause) {
      return std::nullopt;
    }
    fault.pause = std::chrono::milliseconds(*pause);
    words = words.subspan(1);
  }
  return words.empty() ? std::optional(fault) : std::nullopt;
}

Bytes cut_off_head(Bytes& reply, std::size_t count) {
  const auto middle = reply.begin() + static_cast<std::ptrdiff_t>(std::min(count, reply.size()));
  Bytes head(reply.begin(), middle);
  reply.erase(reply.begin(), middle);
  return head;
}

}  // namespace

std::optional<Fault> parse_fault(std::span<const std::string_view> words, std::string& error) {
  const std::string_view name = words.empty() ? "" : words.front();
  const auto* form = std::ranges::find(FAULT_FORMS, name, &FaultForm::name);
  if (form == FAULT_FORMS.end()) {
    error = "unknown fault '" + std::string(name) + "' (expected one of";
    for (const FaultForm& known : FAULT_FORMS) {
      error.append(" ").append(known.name);
    }
    error += ")";
    return std::nullopt;
  }
  const auto fault = parse_arguments(*form, words.subspan(1));
  if (!fault) {
    error = "invalid arguments of fault '" + std::string(name) + "' (expected '" + std::string(form->usage) +
            "', N from 0 to " + std::to_string(LARGEST_COUNT) + ", MS from 0 to " +
            std::to_string(LARGEST_PAUSE) + ")";
  }
  return fault;
}

std::vector<std::string_view> fault_forms() {
  std::vector<std::string_view> forms;
  std::ranges::transform(FAULT_FORMS, std::back_inserter(forms), &FaultForm::usage);
  return forms;
}

std::string to_string(const Fault& fault, char separator) {
  const auto* form = std::ranges::find(FAULT_FORMS, fault.kind, &FaultForm::kind);
  std::string text(form->name);
  if (form->count) {
    text += separator + std::to_string(fault.count);
  }
  if (form->pause != Argument::None) {
    text += separator + std::to_string(fault.pause.count());
  }
  if (fault.only) {
    text += separator;
    text += *fault.only == RequestKind::Status ? "status" : "levels";
  }
  return text;
}

std::vector<Piece> plan_delivery(const Fault& fault, RequestKind kind, Bytes reply) {
  const bool spared = fault.only.has_value() && *fault.only != kind;
  std::vector<Piece> pieces;
  switch (spared ? None : fault.kind) {
    case None:
      pieces.push_back({{}, reply});
      break;
    case Silent:
    case Refuse:
      break;
    case Short:
      pieces.push_back({{}, cut_off_head(reply, fault.count)});
      break;
    case Drip:
      for (const unsigned char byte : reply) {
        pieces.push_back({pieces.empty() ? std::chrono::milliseconds(0) : fault.pause, {byte}});
      }
      break;
    case Split:
      pieces.push_back({{}, cut_off_head(reply, fault.count)});
      pieces.push_back({fault.pause, reply});
      break;
    case Long:
      reply.resize(std::max(reply.size(), fault.count));
      pieces.push_back({{}, reply});
      break;
    case Garbage:
      pieces.push_back({{}, Bytes(reply.size(), GARBAGE)});
      break;
    case Slow:
      pieces.push_back({fault.pause, reply});
      break;
    case Close:
      pieces.push_back({{}, cut_off_head(reply, fault.count), true});
      break;
  }
  return pieces;
}
