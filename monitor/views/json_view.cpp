// SPDX-License-Identifier: Apache-2.0
#include "monitor/views/json_view.h"

#include <nlohmann/json.hpp>

#include "monitor/views/plain_text.h"
#include "monitor/views/wording.h"

namespace {

using Json = nlohmann::ordered_json;

template <typename Value>
Json value_or_null(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json text_or_null(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

Json state_of(QueueState state) {
  switch (state) {
    case QueueState::Idle:
      return "idle";
    case QueueState::Processing:
      return "processing";
    case QueueState::Stopped:
      return "stopped";
    case QueueState::Unknown:
      break;
  }
  return nullptr;
}

Json number_in(const Limit& limit, Limit::Unit unit) {
  return limit.unit == unit ? Json(limit.number) : Json(nullptr);
}

Json ribbon_of(const QueueReport& queue, const Limits& limits) {
  const auto& reading = queue.reading;
  return {
      {"prints_remaining", value_or_null(reading.prints_remaining)},
      {"prints_total", value_or_null(reading.prints_total)},
      {"level_percent", value_or_null(reading.level_percent)},
      {"low", reading.level_percent ? Json(is_under(reading, limits.low)) : Json(nullptr)},
      {"sheet", text_or_null(reading.sheet)},
      {"words", text_or_null(reading.ribbon_words)},
      {"answered", value_or_null(reading.answered)},
      {"read_at", queue.read_at ? Json(utc_time_text(*queue.read_at)) : Json(nullptr)},
      {"age_seconds", value_or_null(reading.age_seconds)},
  };
}

Json queue_of(const QueueReport& queue, const Limits& limits) {
  const auto& reading = queue.reading;
  Json errors = Json::array();
  for (const auto& error : reading.errors) {
    errors.push_back({{"group", error.group},
                      {"code", error.code},
                      {"keyword", reason_keyword(error)},
                      {"certain", !is_fallback(error)}});
  }
  Json markers = Json::array();
  for (const auto& marker : reading.markers) {
    markers.push_back({{"name", text_or_null(marker.name)},
                       {"type", text_or_null(marker.type)},
                       {"level_percent", value_or_null(marker.level)}});
  }
  return {
      {"queue", reading.queue},
      {"status", static_cast<int>(judge(queue, limits))},
      {"info", text_or_null(reading.info)},
      {"location", text_or_null(reading.location)},
      {"make_and_model", text_or_null(reading.make_and_model)},
      {"state", state_of(reading.state)},
      {"state_seconds", value_or_null(reading.state_seconds)},
      {"message", text_or_null(reading.state_message)},
      {"accepting_jobs", value_or_null(reading.accepting)},
      {"shared", value_or_null(reading.shared)},
      {"stuck", queue.stuck},
      {"prints_waiting", queue.prints_waiting},
      {"print_seconds", value_or_null(queue.job_seconds)},
      {"refresh",
       {{"outcome", name_of(queue.outcome)},
        {"detail", text_or_null(queue.detail)},
        {"seconds", value_or_null(queue.seconds)}}},
      {"ribbon", ribbon_of(queue, limits)},
      {"errors", errors},
      {"reasons", reading.reasons},
      {"markers", markers},
  };
}

}  // namespace

std::string json_view(const Report& report, int indent) {
  Json servers = Json::array();
  for (const auto& server : report.servers) {
    Json queues = Json::array();
    for (const auto& queue : server.queues) {
      queues.push_back(queue_of(queue, report.limits));
    }
    servers.push_back({{"server", server.server},
                       {"error", text_or_null(server.error)},
                       {"refresh_seconds", server.seconds},
                       {"queues", queues}});
  }
  const Json object = {
      {"schema", JSON_SCHEMA},
      {"time", utc_time_text(report.time)},
      {"status", static_cast<int>(judge(report))},
      {"low_percent", number_in(report.limits.low, Limit::Unit::Percent)},
      {"low_prints", number_in(report.limits.low, Limit::Unit::Prints)},
      {"critical_percent", number_in(report.limits.critical, Limit::Unit::Percent)},
      {"critical_prints", number_in(report.limits.critical, Limit::Unit::Prints)},
      {"servers", servers},
  };
  return escaped_json(object.dump(indent, ' ', false, Json::error_handler_t::replace)) + "\n";
}
