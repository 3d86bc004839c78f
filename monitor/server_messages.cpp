// SPDX-License-Identifier: Apache-2.0
#include "monitor/server_messages.h"

#include <array>
#include <concepts>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

namespace {

template <typename T, typename Bare>
concept Is = std::same_as<std::remove_const_t<T>, Bare>;

// The members of each type in the order in which they are sent. The bindings name them all, so that a new
// member that is not sent does not compile.

auto members(Is<Marker> auto& value) {
  auto& [name, type, level] = value;
  return std::tie(name, type, level);
}

auto members(Is<ReasonCode> auto& value) {
  auto& [group, code] = value;
  return std::tie(group, code);
}

auto members(Is<Reading> auto& value) {
  auto& [queue, info, location, make_and_model, state, accepting, state_message, state_seconds, shared,
         active_jobs, reports_levels, reports_status, other_commands, prints_remaining, prints_total,
         level_percent, sheet, ribbon_words, answered, markers, errors, reasons, reported_at, age_seconds] =
      value;
  return std::tie(queue, info, location, make_and_model, state, accepting, state_message, state_seconds,
                  shared, active_jobs, reports_levels, reports_status, other_commands, prints_remaining,
                  prints_total, level_percent, sheet, ribbon_words, answered, markers, errors, reasons,
                  reported_at, age_seconds);
}

auto members(Is<Job> auto& value) {
  auto& [number, queue, is_command, is_own, state, processing_seconds, stopped_queue, sheets_completed] =
      value;
  return std::tie(number, queue, is_command, is_own, state, processing_seconds, stopped_queue,
                  sheets_completed);
}

auto members(Is<LookRequest> auto& value) {
  auto& [first_job, queues, names] = value;
  return std::tie(first_job, queues, names);
}

auto members(Is<SendRequest> auto& value) {
  auto& [queue, report_levels, lifetime_seconds] = value;
  return std::tie(queue, report_levels, lifetime_seconds);
}

auto members(Is<PurgeRequest> auto& value) {
  auto& [queue, job, has_ended] = value;
  return std::tie(queue, job, has_ended);
}

auto members(Is<Look> auto& value) {
  auto& [queues, jobs] = value;
  return std::tie(queues, jobs);
}

auto members(Is<Sent> auto& value) {
  auto& [job] = value;
  return std::tie(job);
}

auto members(Is<Purged> auto& /*value*/) {
  return std::tuple<>();
}

auto members(Is<SchedulerError> auto& value) {
  auto& [kind, text] = value;
  return std::tie(kind, text);
}

constexpr auto LAST_STATE = QueueState::Stopped;
constexpr auto LAST_KIND = SchedulerError::Kind::Refused;

bool is_known(QueueState state) {
  return state <= LAST_STATE;
}
bool is_known(SchedulerError::Kind kind) {
  return kind <= LAST_KIND;
}

template <typename T>
constexpr std::size_t MAX_COUNT = MAX_VALUES;
template <>
constexpr std::size_t MAX_COUNT<Reading> = MAX_QUEUES;
template <>
constexpr std::size_t MAX_COUNT<Job> = MAX_JOBS;

/// Writer appends values to bytes: numbers in the machine's own form, lengths before what is that long.
class Writer {
 public:
  void put(std::int32_t number) { put_raw(number); }
  void put(bool value) { bytes_.push_back(value ? 1 : 0); }
  void put(ipp_jstate_t state) { put(static_cast<std::int32_t>(state)); }
  template <typename Enum>
  requires std::same_as<std::underlying_type_t<Enum>, std::uint8_t>
  void put(Enum value) { bytes_.push_back(static_cast<char>(value)); }
  void put(const std::string& text) {
    put_raw(static_cast<std::uint32_t>(text.size()));
    bytes_ += text;
  }
  template <typename T>
  void put(const std::optional<T>& value) {
    put(value.has_value());
    if (value) {
      put(*value);
    }
  }
  template <typename T>
  void put(const std::vector<T>& values) {
    put_raw(static_cast<std::uint32_t>(values.size()));
    for (const auto& value : values) {
      put(value);
    }
  }
  template <typename... Types>
  void put(const std::variant<Types...>& value) {
    bytes_.push_back(static_cast<char>(value.index()));
    std::visit([this](const auto& one) { this->put(one); }, value);
  }
  template <typename T>
  requires requires(const T& value) { members(value); }
  void put(const T& value) {
    std::apply([this](const auto&... each) { (this->put(each), ...); }, members(value));
  }

  [[nodiscard]] std::string take() { return std::move(bytes_); }

 private:
  template <typename T>
  void put_raw(T number) {
    std::array<char, sizeof number> raw{};
    std::memcpy(raw.data(), &number, sizeof number);
    bytes_.append(raw.data(), raw.size());
  }

  std::string bytes_;
};

/// Reader takes values from bytes. Each call returns false once they cannot be what a Writer wrote.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}

  bool get(std::int32_t& number) { return get_raw(number); }
  bool get(bool& value) {
    std::uint8_t byte = 0;
    const bool valid = get_raw(byte) && byte <= 1;
    value = byte == 1;
    return valid;
  }
  bool get(ipp_jstate_t& state) {
    std::int32_t number = 0;
    const bool valid = get(number) && number >= IPP_JSTATE_PENDING && number <= IPP_JSTATE_COMPLETED;
    state = valid ? static_cast<ipp_jstate_t>(number) : IPP_JSTATE_PENDING;
    return valid;
  }
  template <typename Enum>
  requires std::same_as<std::underlying_type_t<Enum>, std::uint8_t>
  bool get(Enum& value) {
    std::uint8_t byte = 0;
    const bool valid = get_raw(byte);
    value = static_cast<Enum>(byte);
    return valid && is_known(value);
  }
  bool get(std::string& text) {
    std::uint32_t length = 0;
    if (!get_raw(length) || length > MAX_TEXT_BYTES || length > bytes_.size()) {
      return false;
    }
    text = bytes_.substr(0, length);
    bytes_.remove_prefix(length);
    return true;
  }
  template <typename T>
  bool get(std::optional<T>& value) {
    bool is_there = false;
    return get(is_there) && (!is_there || get(value.emplace()));
  }
  template <typename T>
  bool get(std::vector<T>& values) {
    std::uint32_t count = 0;
    // Each value takes a byte at least, so that a few bytes never ask for much memory.
    if (!get_raw(count) || count > MAX_COUNT<T> || count > bytes_.size()) {
      return false;
    }
    for (; count > 0; --count) {
      if (!get(values.emplace_back())) {
        return false;
      }
    }
    return true;
  }
  template <typename... Types>
  bool get(std::variant<Types...>& value) {
    std::uint8_t index = 0;
    return get_raw(index) && get_alternative(value, index, std::index_sequence_for<Types...>());
  }
  template <typename T>
  requires requires(T& value) { members(value); }
  bool get(T& value) {
    return std::apply([this](auto&... each) { return (this->get(each) && ...); }, members(value));
  }

  [[nodiscard]] bool is_at_end() const { return bytes_.empty(); }

 private:
  template <typename T>
  bool get_raw(T& number) {
    if (bytes_.size() < sizeof number) {
      return false;
    }
    std::memcpy(&number, bytes_.data(), sizeof number);
    bytes_.remove_prefix(sizeof number);
    return true;
  }
  template <typename Variant, std::size_t... Indices>
  bool get_alternative(Variant& value, std::size_t index, std::index_sequence<Indices...> /*all*/) {
    return ((index == Indices && get(value.template emplace<Indices>())) || ...);
  }

  std::string_view bytes_;
};

template <typename T>
std::string encoded(const T& message) {
  Writer writer;
  writer.put(message);
  return writer.take();
}

template <typename T>
std::optional<T> decoded(std::string_view bytes) {
  Reader reader(bytes);
  T message;
  if (!reader.get(message) || !reader.is_at_end()) {
    return std::nullopt;
  }
  return message;
}

}  // namespace

std::string frame(const std::string& message) {
  const auto size = static_cast<std::uint32_t>(message.size());
  std::string framed(FRAME_BYTES, '\0');
  std::memcpy(framed.data(), &size, sizeof size);
  return framed + message;
}

std::optional<std::size_t> framed_size(std::string_view bytes) {
  std::uint32_t size = 0;
  static_assert(sizeof size == FRAME_BYTES);
  if (bytes.size() < sizeof size) {
    return std::nullopt;
  }
  std::memcpy(&size, bytes.data(), sizeof size);
  return size;
}

std::string encode(const SchedulerRequest& request) {
  return encoded(request);
}
std::string encode(const SchedulerAnswer& answer) {
  return encoded(answer);
}

std::optional<SchedulerRequest> decode_request(std::string_view bytes) {
  return decoded<SchedulerRequest>(bytes);
}
std::optional<SchedulerAnswer> decode_answer(std::string_view bytes) {
  return decoded<SchedulerAnswer>(bytes);
}
