// SPDX-License-Identifier: Apache-2.0
#include "tests/support/json_schema.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "monitor/views/json_view.h"
#include "tests/unit/sample_report.h"

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

TEST(JsonSchema, FitsEveryConditionOfAQueue) {
  EXPECT_EQ(schema_error(json_view(sample_report())), "");
  EXPECT_EQ(schema_error(json_view(sample_report(), -1)), "");
  EXPECT_EQ(schema_error(json_view({})), "");
}

TEST(JsonSchema, FitsHostileTexts) {
  for (const auto& text : HOSTILE_TEXTS) {
    auto report = hostile_report(text);
    for (auto& queue : report.servers[0].queues) {
      queue.reading.errors.clear();  // their digits are checked where they are read
    }
    EXPECT_EQ(schema_error(json_view(report)), "") << text;
  }
}

TEST(JsonSchema, FitsEveryOutcomeAndState) {
  Report report = sample_report();
  auto& queue = report.servers[0].queues[0];
  for (int outcome = 0; outcome <= static_cast<int>(Outcome::NotFound); ++outcome) {
    queue.outcome = static_cast<Outcome>(outcome);
    EXPECT_EQ(schema_error(json_view(report)), "") << outcome;
  }
  for (int state = 0; state <= static_cast<int>(QueueState::Stopped); ++state) {
    queue.reading.state = static_cast<QueueState>(state);
    EXPECT_EQ(schema_error(json_view(report)), "") << state;
  }
}

TEST(JsonSchema, HasTheNumberOfTheOutput) {
  std::ifstream file(SCHEMA_FILE);
  const auto schema = Json::parse(file);
  EXPECT_EQ(schema["properties"]["schema"]["const"], JSON_SCHEMA);
  EXPECT_EQ(schema["$id"], "urn:brenvellis:monitor:" + std::to_string(JSON_SCHEMA));
  EXPECT_THAT(SCHEMA_FILE, HasSubstr("/brenvellis-monitor-" + std::to_string(JSON_SCHEMA) + ".schema.json"));
}

/// Every object of the document: pointers to them, the document itself first.
void list_objects(const Json& value, const Json::json_pointer& at, std::vector<Json::json_pointer>& found) {
  if (value.is_object()) {
    found.push_back(at);
  }
  if (value.is_structured()) {
    for (const auto& [key, inner] : value.items()) {
      list_objects(inner, value.is_array() ? at / std::stoul(key) : at / key, found);
    }
  }
}

TEST(JsonSchema, RefusesAFieldTooManyAndAFieldTooFewInEveryObject) {
  Report report = sample_report();
  report.servers.resize(1);
  std::erase_if(report.servers[0].queues, [](const auto& one) { return one.reading.errors.empty(); });
  report.servers[0].queues.resize(1);
  const auto document = Json::parse(json_view(report));
  std::vector<Json::json_pointer> objects;
  list_objects(document, Json::json_pointer(), objects);
  ASSERT_EQ(objects.size(), 7U);
  for (const auto& object : objects) {
    auto changed = document;
    changed[object]["surprise"] = 1;
    EXPECT_THAT(schema_error(changed.dump()), HasSubstr("surprise")) << object;
    for (const auto& [field, value] : document[object].items()) {
      changed = document;
      changed[object].erase(field);
      EXPECT_THAT(schema_error(changed.dump()), HasSubstr("required property")) << object << ' ' << field;
    }
  }
}

TEST(JsonSchema, RefusesWhatIsNotJson) {
  EXPECT_NE(schema_error("{\"schema\": NaN}"), "");
  EXPECT_NE(schema_error("{"), "");
}

}  // namespace
