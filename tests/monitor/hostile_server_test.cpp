// SPDX-License-Identifier: Apache-2.0
// Sends malicious answers of a print server to a ServerProcess.

#include "tests/monitor/hostile_server.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "monitor/server_messages.h"
#include "monitor/server_process.h"
#include "tests/monitor/ask.h"
#include "tests/monitor/monitor_run.h"
#include "tests/support/temporary_folder.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::AnyOf;
using Kind = SchedulerError::Kind;
using Exchange = HostileServer::Exchange;

constexpr seconds PATIENCE{10};

const std::string BETWEEN_QUEUES(1, static_cast<char>(IPP_TAG_PRINTER));
const std::string END(1, static_cast<char>(IPP_TAG_END));

/// Answers Get-Jobs as a server without jobs, and CUPS-Get-Printers with `body`.
HostileServer::Answer queues(const std::string& body) {
  return [response = http_response("200 OK", body)](Exchange& exchange) {
    exchange.send(exchange.operation() == IPP_OP_CUPS_GET_PRINTERS ? response : ipp_response());
  };
}

/// A server with so many healthy queues.
HostileServer::Answer many_queues(std::size_t count) {
  std::string body = ipp_start();
  for (std::size_t i = 0; i < count; ++i) {
    body += (i == 0 ? "" : BETWEEN_QUEUES) + queue_attributes("queue" + std::to_string(i));
  }
  return queues(body + END);
}

/// Answers every request with the same bytes.
HostileServer::Answer always(const std::string& response) {
  return [response](Exchange& exchange) { exchange.send(response); };
}

/// Begins an answer and then sends what `more` gives, without an end.
HostileServer::Answer endless(const std::string& start, const std::function<std::string(int)>& more) {
  return [=](Exchange& exchange) {
    exchange.send(start);
    for (int i = 0; exchange.send(more(i)); ++i) {
    }
  };
}

ServerProcess process_for(const HostileServer& server, milliseconds patience = PATIENCE) {
  return {{"127.0.0.1", server.port()}, HTTP_ENCRYPTION_IF_REQUESTED, patience, MONITOR_PROGRAM};
}

SchedulerAnswer look_at(const HostileServer& server, milliseconds patience = PATIENCE) {
  auto process = process_for(server, patience);
  return ask(process, LookRequest{1});
}

Kind kind_of(const SchedulerAnswer& answer) {
  return std::get<SchedulerError>(answer).kind;
}

const std::string HEAD = "HTTP/1.1 200 OK\r\nContent-Type: application/ipp\r\n";
const std::string ENDLESS = HEAD + "Content-Length: 2000000000\r\n\r\n";

TEST(HostileServerTest, NestedCollectionsAreAnInvalidAnswer) {
  std::string body = ipp_start() + ipp_value(IPP_TAG_BEGIN_COLLECTION, "marker-names", "");
  constexpr int depth = 20000;
  for (int i = 0; i < depth; ++i) {
    body += ipp_value(IPP_TAG_MEMBERNAME, "", "a") + ipp_value(IPP_TAG_BEGIN_COLLECTION, "", "");
  }
  const HostileServer server(queues(body));
  EXPECT_EQ(kind_of(look_at(server)), Kind::InvalidAnswer);
}

TEST(HostileServerTest, EndlessTextsAreAnInvalidAnswer) {
  const HostileServer server(endless(
      ENDLESS + ipp_start() + ipp_value(IPP_TAG_TEXT, "printer-info", "first"),
      [](int i) { return ipp_value(IPP_TAG_TEXT, "", std::to_string(i) + std::string(30000, 'x')); }));
  const auto error = error_of(look_at(server, seconds(60)));
  EXPECT_EQ(error.kind, Kind::InvalidAnswer);
  EXPECT_EQ(error.text, "its answer is too large");
}

TEST(HostileServerTest, EndlessAnswersAreGivenUp) {
  const std::string one_value = ipp_value(IPP_TAG_INTEGER, "", std::string(4, '\0'));
  std::string values;
  for (int i = 0; i < 1000; ++i) {
    values += one_value;
  }
  const struct {
    const char* name;
    HostileServer::Answer answer;
  } cases[] = {
      {"silence", [](Exchange& exchange) { exchange.wait(seconds(60)); }},
      {"drip",
       [](Exchange& exchange) {
         for (const char byte : ipp_response()) {
           if (!exchange.send(std::string(1, byte)) || !exchange.wait(milliseconds(100))) {
             return;
           }
         }
       }},
      {"values", endless(ENDLESS + ipp_start() + ipp_value(IPP_TAG_INTEGER, "marker-levels", "1234"),
                         [=](int) { return values; })},
      {"headers", endless(HEAD, [](int i) { return "X-" + std::to_string(i) + ": y\r\n"; })},
      {"one header", endless(HEAD + "X: ", [](int) { return std::string(1000, 'x'); })},
      {"continue", endless("", [](int) { return "HTTP/1.1 100 Continue\r\n\r\n"; })},
      {"chunks", endless(HEAD + "Transfer-Encoding: chunked\r\n\r\n",
                         [](int) { return "1000\r\n" + std::string(0x1000, '\x44') + "\r\n"; })},
  };
  for (const auto& one : cases) {
    const HostileServer server(one.answer);
    EXPECT_THAT(kind_of(look_at(server, seconds(1))), AnyOf(Kind::NoAnswer, Kind::InvalidAnswer)) << one.name;
  }
}

TEST(HostileServerTest, OtherDataThanIppIsAnInvalidAnswer) {
  const struct {
    const char* name;
    std::string response;
  } cases[] = {
      {"web page", http_response("200 OK", "<html><title>Welcome</title></html>")},
      {"nothing", http_response("200 OK")},
      {"not found", http_response("404 Not Found")},
      {"bad request", http_response("400 Bad Request")},
      {"server error", http_response("500 Internal Server Error")},
      {"wrong length", "HTTP/1.1 200 OK\r\nContent-Length: -1\r\n\r\n" + ipp_start()},
      {"huge chunk", HEAD + "Transfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\n" + ipp_start()},
      {"cut", http_response("200 OK", ipp_start() + std::string(1, '\x44'))},
      {"value longer than the rest", http_response("200 OK", ipp_start() + std::string("\x41\0\1a\xff\xff"
                                                                                       "b",
                                                                                       7))},
      {"not HTTP", "220 mail.example.org ESMTP\r\n"},
      {"not text", std::string("\0\xff\0\xfe\r\n\r\n", 8)},
  };
  for (const auto& one : cases) {
    const HostileServer server(always(one.response));
    const auto answer = look_at(server, seconds(1));
    EXPECT_THAT(kind_of(answer), AnyOf(Kind::InvalidAnswer, Kind::NoAnswer)) << one.name;
  }
}

TEST(HostileServerTest, RedirectsAreNotFollowed) {
  const HostileServer other(many_queues(1));
  for (const char* status : {"301 Moved", "302 Found", "303 See Other", "307 Temporary", "308 Permanent"}) {
    const HostileServer server(always(
        http_response(status, "", "Location: http://127.0.0.1:" + std::to_string(other.port()) + "/\r\n")));
    const auto error = error_of(look_at(server));
    EXPECT_EQ(error.kind, Kind::InvalidAnswer) << status;
    EXPECT_EQ(error.text, "it does not answer as a print server");
  }
  EXPECT_EQ(other.connections(), 0U);
}

TEST(HostileServerTest, RefusalsAreDistinguished) {
  const char* upgrade = "Upgrade: TLS/1.2,HTTP/1.1\r\nConnection: Upgrade\r\n";
  const struct {
    std::string response;
    Kind kind;
    const char* text;
  } cases[] = {
      {http_response("401 Unauthorized", "", "WWW-Authenticate: Basic realm=\"x\"\r\n"), Kind::Unauthorized,
       nullptr},
      {http_response("401 Unauthorized", "", "WWW-Authenticate: Negotiate\r\n"), Kind::Unauthorized, nullptr},
      {http_response("401 Unauthorized"), Kind::Unauthorized, nullptr},
      {http_response("403 Forbidden"), Kind::Forbidden, "Forbidden"},
      {http_response("426 Upgrade Required", "", upgrade), Kind::NeedsEncryption, nullptr},
      {ipp_response(IPP_STATUS_ERROR_FORBIDDEN, "No."), Kind::Forbidden, "No."},
      {ipp_response(IPP_STATUS_ERROR_NOT_AUTHENTICATED, "Who?"), Kind::Unauthorized, "Who?"},
      {ipp_response(IPP_STATUS_ERROR_NOT_AUTHORIZED, "The printer or class is not shared."), Kind::Forbidden,
       "The printer or class is not shared."},
      {ipp_response(IPP_STATUS_ERROR_NOT_POSSIBLE, "Too many active jobs."), Kind::Busy,
       "Too many active jobs."},
      {ipp_response(IPP_STATUS_ERROR_BUSY, "Later."), Kind::Busy, "Later."},
      {ipp_response(IPP_STATUS_ERROR_NOT_FOUND, "Gone."), Kind::NotFound, "Gone."},
      {ipp_response(IPP_STATUS_ERROR_INTERNAL, "Oops."), Kind::Refused, "Oops."},
      {ipp_response(static_cast<ipp_status_t>(0x05ff), "\xff\xfe"), Kind::Refused, "\xff\xfe"},
      {ipp_response(IPP_STATUS_OK), Kind::InvalidAnswer, "it took the job but gave it no number"},
  };
  for (const auto& one : cases) {
    const HostileServer server(always(one.response));
    auto process = process_for(server);
    const auto error = error_of(ask(process, SendRequest{"booth", 1, 60}));
    EXPECT_EQ(error.kind, one.kind) << one.response;
    if (one.text != nullptr) {
      EXPECT_EQ(error.text, one.text);
    }
  }
}

TEST(HostileServerTest, AServerThatRefusesToForgetAJobIsAskedToCancelIt) {
  std::atomic<int> requests = 0;
  const HostileServer server([&, read = many_queues(1)](Exchange& exchange) {
    if (exchange.operation() != IPP_OP_CANCEL_JOB) {
      read(exchange);
      return;
    }
    ++requests;
    exchange.send(ipp_response(requests == 1 ? IPP_STATUS_ERROR_FORBIDDEN : IPP_STATUS_OK));
  });
  auto process = process_for(server);
  EXPECT_TRUE(std::holds_alternative<Look>(ask(process, LookRequest())));
  EXPECT_EQ(kind_of(ask(process, PurgeRequest{"booth", 1})), Kind::Forbidden);
  EXPECT_EQ(requests, 2);
}

TEST(HostileServerTest, ManyQueuesAreRead) {
#ifdef BRENVELLIS_SANITIZE
  // Without a memory limit a small number is enough; the time that libcups needs grows with its square.
  constexpr std::size_t count = 5000;
#else
  constexpr std::size_t count = 30000;
#endif
  const HostileServer server(many_queues(count));
  auto process = process_for(server, seconds(60));
  const auto look = std::get<Look>(ask(process, LookRequest()));
  ASSERT_EQ(look.queues.size(), count);
  EXPECT_EQ(look.queues.back().queue, "queue" + std::to_string(count - 1));
  EXPECT_EQ(look.queues.back().prints_remaining, 200);
  // The process stays within its memory the second time, too.
  EXPECT_EQ(std::get<Look>(ask(process, LookRequest())).queues.size(), count);
}

TEST(HostileServerTest, MoreQueuesThanTheLimitAreAnInvalidAnswer) {
  std::string body = ipp_start();
  for (std::size_t i = 0; i < MAX_QUEUES; ++i) {
    body += ipp_value(IPP_TAG_NAME, "printer-name", "queue") + BETWEEN_QUEUES;
  }
  const std::string one_more = ipp_value(IPP_TAG_NAME, "printer-name", "queue");
  HostileServer server(queues(body + END));
  auto process = process_for(server, seconds(60));
  EXPECT_EQ(std::get<Look>(ask(process, LookRequest())).queues.size(), MAX_QUEUES);
  server.answer_with(queues(body + one_more + END));
  EXPECT_EQ(error_of(ask(process, LookRequest())).text, "it has too many queues or jobs");
}

TEST(HostileServerTest, LongTextsAndManyValuesAreCut) {
  ipp_t* answer = ipp_answer();
  const std::string text(5000, 'x');
  const std::vector<const char*> texts(1000, text.c_str());
  const std::vector<int> numbers(1000, 7);
  for (const char* name : {"printer-name", "printer-info", "printer-state-message", "printer-state-reasons",
                           "marker-names", "marker-types", "marker-message"}) {
    ippAddStrings(answer, IPP_TAG_PRINTER, IPP_TAG_KEYWORD, name, 1000, nullptr, texts.data());
  }
  ippAddIntegers(answer, IPP_TAG_PRINTER, IPP_TAG_INTEGER, "marker-levels", 1000, numbers.data());
  const HostileServer server(queues(ipp_bytes(answer)));
  const auto look = std::get<Look>(look_at(server));
  ASSERT_EQ(look.queues.size(), 1U);
  EXPECT_EQ(look.queues[0].info, std::string(MAX_TEXT_BYTES, 'x'));
  EXPECT_EQ(look.queues[0].markers.size(), MAX_VALUES);
  EXPECT_EQ(look.queues[0].reasons.size(), MAX_VALUES);
}

TEST(HostileServerTest, AttributesOfJobsMayBeAnything) {
  ipp_t* answer = ipp_answer();
  const auto job = [&](ipp_tag_t tag, const char* value) {
    ippAddSeparator(answer);
    for (const char* name : {"job-id", "job-state", "job-printer-uri", "document-format",
                             "time-at-processing", "job-printer-up-time", "job-impressions-completed"}) {
      if (tag == IPP_TAG_INTEGER) {
        ippAddInteger(answer, IPP_TAG_JOB, tag, name, INT_MIN);
      } else {
        ippAddString(answer, IPP_TAG_JOB, tag, name, nullptr, value);
      }
    }
  };
  job(IPP_TAG_INTEGER, "");
  job(IPP_TAG_KEYWORD, "\xff");
  job(IPP_TAG_URI, "ipp://localhost/printers/%ff%00");
  const HostileServer server([response = http_response("200 OK", ipp_bytes(answer))](Exchange& exchange) {
    exchange.send(exchange.operation() == IPP_OP_GET_JOBS ? response : ipp_response());
  });
  const auto look = std::get<Look>(look_at(server));
  ASSERT_EQ(look.jobs.size(), 2U);  // two have the same number: none
  EXPECT_EQ(look.jobs[0].number, INT_MIN);
  EXPECT_EQ(look.jobs[0].state, IPP_JSTATE_PENDING);
  EXPECT_EQ(look.jobs[0].processing_seconds, std::nullopt);
}

TEST(HostileServerTest, AServerThatChangesIsBelievedEachTime) {
  std::string nested = ipp_start() + ipp_value(IPP_TAG_BEGIN_COLLECTION, "marker-names", "");
  for (int i = 0; i < 20000; ++i) {
    nested += ipp_value(IPP_TAG_MEMBERNAME, "", "a") + ipp_value(IPP_TAG_BEGIN_COLLECTION, "", "");
  }
  const HostileServer::Answer good = many_queues(1);
  const HostileServer::Answer bad[] = {queues(nested), always(http_response("404 Not Found")),
                                       [](Exchange& exchange) { exchange.wait(seconds(60)); },
                                       always("garbage\r\n\r\n"), always("")};
  HostileServer server(good);
  auto process = process_for(server, seconds(1));
  for (const auto& answer : bad) {
    server.answer_with(answer);
    EXPECT_TRUE(std::holds_alternative<SchedulerError>(ask(process, LookRequest())));
    server.answer_with(good);
    const auto look = ask(process, LookRequest());
    ASSERT_TRUE(std::holds_alternative<Look>(look)) << error_of(look).text;
    EXPECT_EQ(std::get<Look>(look).queues.size(), 1U);
  }
}

TEST(HostileServerTest, AHealthyServerAnswersMeanwhile) {
  const HostileServer silent([](Exchange& exchange) { exchange.wait(seconds(60)); });
  const HostileServer healthy(many_queues(1));
  auto waiting = process_for(silent);
  auto answering = process_for(healthy);
  waiting.ask(LookRequest());
  EXPECT_EQ(std::get<Look>(ask(answering, LookRequest())).queues.size(), 1U);
  EXPECT_EQ(waiting.take_answer(), std::nullopt);
}

/// A program in place of the one that asks the server, which says what it wants to its parent.
class HostileChild : public testing::Test {
 protected:
  SchedulerError error_with(const std::string& script) {
    const auto program = folder.path() / "program";
    std::ofstream(program) << "#!/bin/sh\n" << script << '\n';
    std::filesystem::permissions(program, std::filesystem::perms(0755));
    ServerProcess server({"127.0.0.1", 1}, HTTP_ENCRYPTION_IF_REQUESTED, seconds(5), program);
    return error_of(ask(server, LookRequest()));
  }

  TemporaryFolder folder;
};

TEST_F(HostileChild, GarbageIsAnInvalidAnswer) {
  const std::string corrupted = "its answer corrupted the process that reads it";
  for (const char* script : {
           "printf '\\001\\000\\000\\000\\377' >&0; exec sleep 60",      // no such answer
           "printf '\\377\\377\\377\\377' >&0; exec sleep 60",           // too long
           "exec cat /dev/zero >&0",                                     // too much
           "printf '\\001\\000\\000\\000\\002more' >&0; exec sleep 60",  // more than was said
       }) {
    const auto error = error_with(script);
    EXPECT_EQ(error.kind, Kind::InvalidAnswer) << script;
    EXPECT_EQ(error.text, corrupted) << script;
  }
}

TEST_F(HostileChild, AnEndIsAnInvalidAnswer) {
  const auto by_status = error_with("exit 3");
  EXPECT_EQ(by_status.kind, Kind::InvalidAnswer);
  EXPECT_EQ(by_status.text, "its answer crashed the process that reads it: exit status 3");
  const auto by_signal = error_with("kill -SEGV $$");
  EXPECT_EQ(by_signal.kind, Kind::InvalidAnswer);
  EXPECT_EQ(by_signal.text, "its answer crashed the process that reads it: Segmentation fault");
}

TEST_F(HostileChild, HalfAMessageIsNoAnswer) {
  EXPECT_EQ(error_with("printf '\\005\\000\\000\\000\\002' >&0; exec sleep 60").kind, Kind::NoAnswer);
}

}  // namespace
