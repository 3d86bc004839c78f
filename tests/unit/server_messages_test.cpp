// SPDX-License-Identifier: Apache-2.0
#include "monitor/server_messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

/// A queue with every member set, to values that a text format would have to escape.
Reading full_reading() {
  Reading reading;
  reading.queue = "hall";
  reading.info = std::string("\xff\0\"\n", 4);
  reading.location = "\xe2\x80\xae";
  reading.make_and_model = "Brenvellis";
  reading.state = QueueState::Stopped;
  reading.state_message = "Waiting for printer to become available.";
  reading.state_seconds = 12;
  reading.accepting = false;
  reading.shared = true;
  reading.active_jobs = 3;
  reading.reports_levels = true;
  reading.reports_status = true;
  reading.other_commands = true;
  reading.prints_remaining = 1;
  reading.prints_total = -1;
  reading.level_percent = 2'000'000'000;
  reading.sheet = "10x15";
  reading.ribbon_words = "Ink Ribbon = 1 / 0";
  reading.answered = false;
  reading.markers = {{"ribbon", "ink-ribbon", 50}, {"", "", {}}};
  reading.errors = {{"0008", "2660"}};
  reading.reasons = {"paused", ""};
  reading.reported_at = 1'700'000'000;
  reading.age_seconds = 7;
  return reading;
}

Job full_job() {
  return {7, "hall", true, true, IPP_JSTATE_PROCESSING, 5, true, 2};
}

std::string bytes_of_look() {
  return encode(SchedulerAnswer(Look{{full_reading(), Reading()}, {full_job()}}));
}

TEST(ServerMessages, ALookArrivesAsItWasSent) {
  const auto answer = decode_answer(bytes_of_look());
  ASSERT_TRUE(answer);
  EXPECT_THAT(std::get<Look>(*answer).queues, ElementsAre(full_reading(), Reading()));
  EXPECT_THAT(std::get<Look>(*answer).jobs, ElementsAre(full_job()));
}

TEST(ServerMessages, EveryOtherAnswerArrivesAsItWasSent) {
  EXPECT_EQ(std::get<Sent>(decode_answer(encode(SchedulerAnswer(Sent{8}))).value()).job, 8);
  EXPECT_TRUE(std::holds_alternative<Purged>(decode_answer(encode(SchedulerAnswer(Purged()))).value()));
  const SchedulerError error{SchedulerError::Kind::Busy, "Too many active jobs.\xff"};
  EXPECT_EQ(std::get<SchedulerError>(decode_answer(encode(SchedulerAnswer(error))).value()), error);
}

TEST(ServerMessages, EveryRequestArrivesAsItWasSent) {
  const auto look = decode_request(encode(SchedulerRequest(LookRequest{9, false, {"q", "r"}})));
  EXPECT_EQ(std::get<LookRequest>(look.value()).first_job, 9);
  EXPECT_FALSE(std::get<LookRequest>(look.value()).queues);
  EXPECT_THAT(std::get<LookRequest>(look.value()).names, testing::ElementsAre("q", "r"));
  const auto send =
      std::get<SendRequest>(decode_request(encode(SchedulerRequest(SendRequest{"q", 2, 70}))).value());
  EXPECT_EQ(send.queue, "q");
  EXPECT_EQ(send.report_levels, 2);
  EXPECT_EQ(send.lifetime_seconds, 70);
  const auto purge =
      std::get<PurgeRequest>(decode_request(encode(SchedulerRequest(PurgeRequest{"q", 3, true}))).value());
  EXPECT_EQ(purge.queue, "q");
  EXPECT_EQ(purge.job, 3);
  EXPECT_TRUE(purge.has_ended);
}

TEST(ServerMessages, CutAndLengthenedMessagesAreRejected) {
  const std::string bytes = bytes_of_look();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_FALSE(decode_answer(bytes.substr(0, length))) << length;
  }
  EXPECT_FALSE(decode_answer(bytes + '\0'));
}

TEST(ServerMessages, ValuesOutsideTheirTypeAreRejected) {
  Reading reading;
  reading.state = static_cast<QueueState>(4);
  EXPECT_FALSE(decode_answer(encode(SchedulerAnswer(Look{{reading}, {}}))));
  for (const int state : {2, 10, -1}) {
    Job job;
    job.state = static_cast<ipp_jstate_t>(state);
    EXPECT_FALSE(decode_answer(encode(SchedulerAnswer(Look{{}, {job}})))) << state;
  }
  const SchedulerError error{static_cast<SchedulerError::Kind>(9), ""};
  EXPECT_FALSE(decode_answer(encode(SchedulerAnswer(error))));
  EXPECT_FALSE(decode_answer("\x04"));       // no such answer
  EXPECT_FALSE(decode_request("\xff\xff"));  // no such request
}

TEST(ServerMessages, MoreThanTheLimitsIsRejected) {
  const auto look_with = [](const Reading& reading) { return encode(SchedulerAnswer(Look{{reading}, {}})); };
  Reading reading;
  reading.info = std::string(MAX_TEXT_BYTES, 'x');
  reading.reasons.resize(MAX_VALUES);
  EXPECT_TRUE(decode_answer(look_with(reading)));
  reading.info += 'x';
  EXPECT_FALSE(decode_answer(look_with(reading)));
  reading.info.clear();
  reading.reasons.emplace_back();
  EXPECT_FALSE(decode_answer(look_with(reading)));

  EXPECT_TRUE(decode_answer(encode(SchedulerAnswer(Look{std::vector<Reading>(MAX_QUEUES), {}}))));
  EXPECT_FALSE(decode_answer(encode(SchedulerAnswer(Look{std::vector<Reading>(MAX_QUEUES + 1), {}}))));
  EXPECT_FALSE(decode_answer(encode(SchedulerAnswer(Look{{}, std::vector<Job>(MAX_JOBS + 1)}))));
}

TEST(ServerMessages, AFrameTellsTheLengthOfItsMessage) {
  const std::string framed = frame("message");
  EXPECT_EQ(framed.substr(FRAME_BYTES), "message");
  EXPECT_EQ(framed_size(framed), 7U);
  EXPECT_EQ(framed_size(framed.substr(0, FRAME_BYTES - 1)), std::nullopt);
}

}  // namespace
