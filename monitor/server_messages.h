// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "monitor/scheduler.h"

/// The longest message: room for the queues of the largest server, and a bound for a process gone wrong.
inline constexpr std::size_t MAX_MESSAGE_BYTES = 32U << 20U;

/// The longest request: a socket's buffer holds it, so that sending it never waits.
inline constexpr std::size_t MAX_REQUEST_BYTES = 32U << 10U;

/// How many queues and jobs an answer has room for.
inline constexpr std::size_t MAX_QUEUES = 50'000;
inline constexpr std::size_t MAX_JOBS = 100'000;

/// A message goes over a socket behind its length, which takes this many bytes.
inline constexpr std::size_t FRAME_BYTES = 4;

/// The message behind its length.
[[nodiscard]] std::string frame(const std::string& message);

/// The length of the message that `bytes` begin with; nothing if they are too few to tell.
[[nodiscard]] std::optional<std::size_t> framed_size(std::string_view bytes);

/// A request or an answer as bytes, for another process of this same program.
[[nodiscard]] std::string encode(const SchedulerRequest& request);
[[nodiscard]] std::string encode(const SchedulerAnswer& answer);

/// The message of these bytes, which may come from a process gone wrong.
/// @return nothing unless they are exactly what encode() makes of a message within the limits.
[[nodiscard]] std::optional<SchedulerRequest> decode_request(std::string_view bytes);
[[nodiscard]] std::optional<SchedulerAnswer> decode_answer(std::string_view bytes);
