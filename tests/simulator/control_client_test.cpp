// SPDX-License-Identifier: Apache-2.0
// Tests --tell with a peer that is not a simulator, because any user may have created the socket.

#include "simulator/control_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <thread>

#include "tests/support/temporary_folder.h"

namespace {

using testing::HasSubstr;

/// Listens in a new folder and sends the same reply to all clients.
class Impostor {
 public:
  /// @param owner  who listens; changing it needs root.
  explicit Impostor(std::string reply, uid_t owner = geteuid()) : reply_(std::move(reply)) {
    std::signal(SIGPIPE, SIG_IGN);
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(01777));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path().c_str(), sizeof address.sun_path - 1);
    const uid_t before = geteuid();
    EXPECT_EQ(seteuid(owner), 0);
    EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(chmod(path().c_str(), 0777), 0);
    EXPECT_EQ(listen(listener_, 1), 0);
    EXPECT_EQ(seteuid(before), 0);
    thread_ = std::thread([this] {
      const int client = accept(listener_, nullptr, nullptr);
      for (std::size_t sent = 0; client >= 0 && sent < reply_.size();) {
        const ssize_t count = write(client, reply_.data() + sent, reply_.size() - sent);
        if (count <= 0) {
          break;
        }
        sent += static_cast<std::size_t>(count);
      }
      char byte = 0;
      while (client >= 0 && read(client, &byte, 1) > 0) {
      }
      close(client);
    });
  }
  ~Impostor() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }
  Impostor(const Impostor&) = delete;
  Impostor& operator=(const Impostor&) = delete;

  [[nodiscard]] std::string path() const { return (folder_.path() / "control").string(); }

 private:
  TemporaryFolder folder_;
  std::string reply_;
  int listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::thread thread_;
};

struct Told {
  bool ok;
  std::string output;
  std::string errors;
};

Told tell(const Impostor& impostor) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const bool ok = tell_simulator(impostor.path(), "show");
  return {ok, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

TEST(TellSimulator, AReplyReachesTheTerminalWithoutControlCharacters) {
  const auto told = tell(Impostor("ok \x1b[31m\x07\r\x7f \xc2\x9b \xe2\x80\xae~\n"));
  EXPECT_TRUE(told.ok);
  EXPECT_EQ(told.output, "ok ?[31m??? ?? ???~\n");
}

TEST(TellSimulator, AnErrorReachesTheTerminalWithoutControlCharacters) {
  const auto told = tell(Impostor("error: \x1b]0;title\x07\n"));
  EXPECT_FALSE(told.ok);
  EXPECT_EQ(told.errors, "error: ?]0;title?\n");
}

TEST(TellSimulator, AReplyWithoutEndIsGivenUp) {
  const auto told = tell(Impostor(std::string(8 << 20, 'x')));
  EXPECT_FALSE(told.ok);
  EXPECT_EQ(told.output, "");
  EXPECT_THAT(told.errors, HasSubstr("(Message too long)"));
}

TEST(TellSimulator, APeerThatAcceptsNoConnectionIsGivenUp) {
  const TemporaryFolder folder;
  const std::string path = folder.path() / "control";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int waiting = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto* const name = reinterpret_cast<const sockaddr*>(&address);
  ASSERT_EQ(bind(listener, name, sizeof address), 0);
  ASSERT_EQ(listen(listener, 0), 0);
  // The only place in the queue.
  ASSERT_EQ(connect(waiting, name, sizeof address), 0);

  testing::internal::CaptureStderr();
  EXPECT_FALSE(tell_simulator(path, "show", std::chrono::milliseconds(200)));
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("(Connection timed out)"));
  close(waiting);
  close(listener);
}

TEST(TellSimulator, ASimulatorOfAnotherUserIsRefusedButNotByRoot) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can act for two users";
  }
  constexpr uid_t one = 54321;
  constexpr uid_t other = 54322;
  const struct {
    uid_t listens;
    uid_t tells;
    bool ok;
  } cases[] = {{one, other, false}, {one, one, true}, {0, one, true}, {one, 0, true}};
  for (const auto& [listens, tells, ok] : cases) {
    const Impostor impostor("ok\n", listens);
    ASSERT_EQ(seteuid(tells), 0);
    const auto told = tell(impostor);
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(told.ok, ok) << listens << " " << tells;
    EXPECT_EQ(told.errors.find("(Permission denied)") == std::string::npos, ok);
  }
}

}  // namespace
