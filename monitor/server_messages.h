// SPDX-License-Identifier: Apache-2.0
// The messages between this program and its child processes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "monitor/scheduler.h"

/// The maximum length of a message: enough for the queues of the largest server, and a limit for a
/// compromised process.
inline constexpr std::size_t MAX_MESSAGE_BYTES = 32U << 20U;

/// The maximum length of a request: it fits into a socket's buffer, so that sending it does not block.
inline constexpr std::size_t MAX_REQUEST_BYTES = 32U << 10U;

/// The maximum numbers of queues and jobs in an answer.
inline constexpr std::size_t MAX_QUEUES = 50'000;
inline constexpr std::size_t MAX_JOBS = 100'000;

/// On a socket, each message is preceded by its length: FRAME_BYTES bytes in the host's byte order.
inline constexpr std::size_t FRAME_BYTES = 4;

/// Returns the message with its length in front.
[[nodiscard]] std::string frame(const std::string& message);

/// Returns the length of the message at the start of `bytes`, without comparing it with the maximum; nothing
/// if there are too few bytes.
[[nodiscard]] std::optional<std::size_t> framed_size(std::string_view bytes);

/// Encodes a request or an answer for another process of this program.
[[nodiscard]] std::string encode(const SchedulerRequest& request);
[[nodiscard]] std::string encode(const SchedulerAnswer& answer);

/// Decodes a message, which may come from a compromised process.
/// @return nothing unless the bytes are exactly the result of encode() for a message within the limits.
[[nodiscard]] std::optional<SchedulerRequest> decode_request(std::string_view bytes);
[[nodiscard]] std::optional<SchedulerAnswer> decode_answer(std::string_view bytes);
