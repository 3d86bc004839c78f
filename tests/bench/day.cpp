// SPDX-License-Identifier: Apache-2.0
// A booth's day in a few minutes: day [SECONDS [PRINTS]]. Five queues print while their printers run low,
// report errors and are unplugged, a queue is paused, and the scheduler hangs, restarts and is killed. A
// monitor watches all the time. Prints what happened. Exit status 1 if a print was lost, a view was wrong, a
// trouble or a recovery was not shown, or anything is left over or has grown.

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/bench/fleet.h"
#include "tests/monitor/monitor_run.h"
#include "tests/support/child_process.h"
#include "tests/support/network_printer.h"
#include "tests/support/private_scheduler.h"
#include "tests/support/temporary_folder.h"

namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using Time = steady_clock::time_point;

/// The script of the day is repeated after so many seconds.
constexpr int CYCLE = 120;
/// A print whose backend failed is tried again after 300 seconds.
constexpr seconds LAST_PRINTS{400};
constexpr int TOTAL = 400;

/// Cable connects a port with a simulated printer. It can be pulled out, and keeps a copy of what the printer
/// got.
class Cable {
 public:
  explicit Cable(int printer_port)
      : printer_port_(printer_port), listener_(listen_on(0)), port_(port_of(listener_)) {
    relay_ = std::jthread([this](const std::stop_token& stop) { relay(stop); });
  }
  ~Cable() {
    relay_.request_stop();
    relay_.join();
    unplug();
  }
  Cable(const Cable&) = delete;
  Cable& operator=(const Cable&) = delete;

  [[nodiscard]] std::string device_uri() const { return "socket://127.0.0.1:" + std::to_string(port_); }
  void pull() { is_plugged_ = false; }
  void plug() { is_plugged_ = true; }

  /// How often the printer got these bytes.
  [[nodiscard]] std::size_t count(const std::string& bytes) const {
    const std::lock_guard lock(mutex_);
    std::size_t found = 0;
    for (const auto& record : records_) {
      for (auto at = record.find(bytes); at != std::string::npos; at = record.find(bytes, at + 1)) {
        ++found;
      }
    }
    return found;
  }

 private:
  struct Connection {
    int client;
    int printer;
    std::size_t record;
  };

  static sockaddr_in address_of(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
  }
  static int listen_on(int port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const auto address = address_of(port);
    constexpr int backlog = 5;
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, backlog) != 0) {
      throw std::runtime_error("the cable has no port");
    }
    return listener;
  }
  static int port_of(int listener) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
  }

  /// Closes everything at once, as seen from both ends.
  void unplug() {
    if (listener_ >= 0) {
      close(listener_);
      listener_ = -1;
    }
    const linger at_once{1, 0};
    for (const auto& one : connections_) {
      for (const int socket : {one.client, one.printer}) {
        setsockopt(socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        close(socket);
      }
    }
    connections_.clear();
  }

  void accept_one() {
    const int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const int printer = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto address = address_of(printer_port_);
    if (client < 0 || connect(printer, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      close(client);
      close(printer);
      return;
    }
    const std::lock_guard lock(mutex_);
    connections_.push_back({client, printer, records_.size()});
    records_.emplace_back();
  }

  /// Copies what is there; false at the end of the connection.
  bool copy(int from, int to, std::string* record) {
    std::array<char, 65536> bytes{};
    const auto length = recv(from, bytes.data(), bytes.size(), 0);
    if (length <= 0) {
      return false;
    }
    const std::string_view got(bytes.data(), static_cast<std::size_t>(length));
    if (record != nullptr) {
      const std::lock_guard lock(mutex_);
      record->append(got);
    }
    for (std::size_t sent = 0; sent < got.size();) {
      const auto now = send(to, got.data() + sent, got.size() - sent, MSG_NOSIGNAL);
      if (now <= 0) {
        return false;
      }
      sent += static_cast<std::size_t>(now);
    }
    return true;
  }

  void relay(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      if (!is_plugged_) {
        unplug();
      } else if (listener_ < 0) {
        listener_ = listen_on(port_);
      }
      std::vector<pollfd> polls = {{listener_, POLLIN, 0}};
      for (const auto& one : connections_) {
        polls.push_back({one.client, POLLIN, 0});
        polls.push_back({one.printer, POLLIN, 0});
      }
      constexpr int limit_ms = 50;
      if (poll(polls.data(), polls.size(), limit_ms) <= 0) {
        continue;
      }
      std::vector<Connection> open;
      for (std::size_t i = 0; i < connections_.size(); ++i) {
        const auto& one = connections_[i];
        const bool stays =
            (polls[2 * i + 1].revents == 0 || copy(one.client, one.printer, &records_[one.record])) &&
            (polls[2 * i + 2].revents == 0 || copy(one.printer, one.client, nullptr));
        if (stays) {
          open.push_back(one);
        } else {
          close(one.client);
          close(one.printer);
        }
      }
      connections_ = std::move(open);
      if (polls[0].revents != 0) {
        accept_one();
      }
    }
  }

  int printer_port_;
  int listener_;
  int port_;
  std::atomic<bool> is_plugged_ = true;
  std::vector<Connection> connections_;
  mutable std::mutex mutex_;
  std::vector<std::string> records_;  ///< what the printer got over each connection
  std::jthread relay_;
};

/// Truth holds the settings of a printer from a time on.
struct Truth {
  Time since;
  int remaining;
  bool error;
  bool plugged;
};

/// Booth is a queue with its printer.
class Booth {
 public:
  Booth(const PrivateScheduler& scheduler, std::string queue) : queue_(std::move(queue)) {
    scheduler.add_queue(queue_, cable_.device_uri());
    change([](Truth&) {});
  }

  [[nodiscard]] const std::string& queue() const { return queue_; }
  [[nodiscard]] const Cable& cable() const { return cable_; }
  void slow_down() {
    printer_.tell("fault slow 500");
    is_slow_ = true;
  }
  void pull() {
    change([](Truth& truth) { truth.plugged = false; });
    cable_.pull();
  }
  void plug() {
    cable_.plug();
    change([](Truth& truth) { truth.plugged = true; });
  }
  void set_remaining(int remaining) {
    change([&](Truth& truth) { truth.remaining = remaining; });
  }
  void use_print() {
    change([](Truth& truth) { truth.remaining = std::max(0, truth.remaining - 1); });
  }
  void set_error(bool error) {
    change([&](Truth& truth) { truth.error = error; });
  }

  /// Returns whether the view says that the values are unknown. The slow printer's answers may come too late
  /// on a busy machine.
  [[nodiscard]] bool is_unknown(const json& view) const {
    const auto& ribbon = view["ribbon"];
    const bool has_no_answer = ribbon["answered"] == false;
    return is_slow_ && ribbon["prints_remaining"].is_null() && ribbon["level_percent"].is_null() &&
           (view["errors"].empty() || has_no_answer) && view["status"] != 0;
  }

  /// Returns whether a view that was seen at `seen` shows what was true at some moment since its values were
  /// read.
  [[nodiscard]] bool is_true(const json& view, Time seen) const {
    const auto& ribbon = view["ribbon"];
    const auto& age = ribbon["age_seconds"];
    if (age.is_null()) {
      return ribbon["prints_remaining"].is_null() && view["errors"].empty();
    }
    // The age counts from the report, and the printer may have answered at any time since it was asked. Ages
    // are whole seconds, and this machine may be busy.
    const auto& exchange = view["refresh"]["seconds"];
    constexpr std::chrono::duration<double> slack{5};
    const Time from =
        seen - seconds(age.get<int>()) -
        std::chrono::duration_cast<Time::duration>(
            slack + std::chrono::duration<double>(exchange.is_null() ? 0 : exchange.get<double>()));
    for (std::size_t i = 0; i < truths_.size(); ++i) {
      const bool is_over = i + 1 < truths_.size() && truths_[i + 1].since < from;
      if (!is_over && truths_[i].since <= seen && shows(view, truths_[i])) {
        return true;
      }
    }
    return false;
  }

  /// Describes the printer's settings of the last minute.
  [[nodiscard]] std::string history(Time now) const {
    std::ostringstream text;
    for (const auto& truth : truths_) {
      const auto ago = std::chrono::duration<double>(now - truth.since).count();
      if (ago < 60) {
        text << ' ' << ago << ": " << truth.remaining << (truth.error ? " error" : "")
             << (truth.plugged ? "" : " unplugged");
      }
    }
    return text.str();
  }

 private:
  static bool shows(const json& view, const Truth& truth) {
    const auto& ribbon = view["ribbon"];
    if (ribbon["answered"] != true) {
      return !truth.plugged && ribbon["prints_remaining"].is_null();
    }
    const bool has_error = view["errors"].size() == 1 && view["errors"][0]["code"] == "2660";
    return ribbon["prints_remaining"] == truth.remaining && ribbon["prints_total"] == TOTAL &&
           (truth.error ? has_error : view["errors"].empty());
  }

  void change(const std::function<void(Truth&)>& how) {
    Truth next = truths_.empty() ? Truth{{}, TOTAL, false, true} : truths_.back();
    how(next);
    next.since = steady_clock::now();
    truths_.push_back(next);
    printer_.tell("remaining " + std::to_string(next.remaining) + "; total " + std::to_string(TOTAL) +
                  "; code " + (next.error ? "0x2660" : "0"));
  }

  std::string queue_;
  NetworkPrinter printer_;
  Cable cable_{printer_.port()};
  bool is_slow_ = false;
  std::vector<Truth> truths_;
};

/// A print and what its printer is to get.
struct Print {
  int job;
  std::size_t booth;
  std::string bytes;
  Time sent;
};

/// Trouble is something that a view must show, and must no longer show after its end.
struct Trouble {
  std::string name;
  std::function<bool(const json&)> is_shown;
  Time begin;
  std::optional<Time> end = std::nullopt;
  std::optional<Time> shown = std::nullopt;
  std::optional<Time> recovered = std::nullopt;
};

const json& queue_of(const json& view, const std::string& name) {
  static const json none = json::object();
  for (const auto& queue : view["servers"].at(0)["queues"]) {
    if (queue["queue"] == name) {
      return queue;
    }
  }
  return none;
}

struct Sizes {
  ProcessSize monitor;
  ProcessSize child;
  ProcessSize scheduler;
};

class Day {
 public:
  Day() {
    for (const char* queue : {"hall", "garden", "cable", "slow", "paused"}) {
      booths_.push_back(std::make_unique<Booth>(scheduler_, queue));
    }
    booth("slow").slow_down();
    const int views = open(views_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    monitor_ = std::make_unique<ChildProcess>(ChildProcess::Options{
        {MONITOR_PROGRAM, "--server", scheduler_.server(), "--watch", "1", "--idle", "5", "--timeout", "5",
         "--json", "--html=" + page_.string(), "--prometheus=" + metrics_.string()},
        {{1, views}},
        {{"LC_ALL", "C.UTF-8"}}});
    close(views);
  }

  /// Runs the whole day. Returns whether everything was as it must be.
  bool run(int length, int prints) {
    const Time start = steady_clock::now();
    const auto pause = std::chrono::duration_cast<milliseconds>(seconds(length)) / prints;
    std::multimap<Time, std::function<void()>> script;
    const int cycles = std::max(1, length / CYCLE);
    for (int i = 0; i < cycles; ++i) {
      add_cycle(script, start + seconds(i * CYCLE));
    }
    std::optional<Sizes> early;
    Time next_print = start;
    const Time end = start + seconds(std::max(length, cycles * CYCLE));
    for (Time now = start; now < end; now = steady_clock::now()) {
      while (!script.empty() && script.begin()->first <= now) {
        script.begin()->second();
        script.erase(script.begin());
      }
      if (next_print <= now && prints_.size() < static_cast<std::size_t>(prints)) {
        print(prints_.size() % booths_.size());
        next_print += pause;
      }
      // By then everything has happened once.
      if (!early && now - start >= seconds(CYCLE)) {
        early = sizes();
      }
      read_views();
      std::this_thread::sleep_for(milliseconds(20));
    }
    return finish(early.value_or(sizes()));
  }

 private:
  Booth& booth(const std::string& name) {
    return **std::ranges::find_if(booths_, [&](const auto& one) { return one->queue() == name; });
  }

  void add_cycle(std::multimap<Time, std::function<void()>>& script, Time start) {
    const auto at = [&](int second, std::function<void()> what) {
      script.emplace(start + seconds(second), std::move(what));
    };
    const auto of = [](const std::string& queue, std::function<bool(const json&)> is_shown) {
      return [=](const json& view) { return is_shown(queue_of(view, queue)); };
    };
    at(6, [=, this] {
      booth("cable").pull();
      // Until the cable is out: the scheduler tries a print that is cut off again only after 300 s.
      std::this_thread::sleep_for(milliseconds(200));
      print(2);
      begin("a pulled cable",
            of("cable", [](const json& one) { return one["stuck"] == true && one["status"] == 2; }));
    });
    at(12, [=, this] {
      booth("garden").set_error(true);
      begin("an error",
            of("garden", [](const json& one) { return !one["errors"].empty() && one["status"] == 2; }));
    });
    at(32, [this] {
      booth("garden").set_error(false);
      end("an error");
    });
    at(34, [=, this] {
      booth("hall").set_remaining(30);
      begin("a low ribbon", of("hall", [](const json& one) { return one["ribbon"]["low"] == true; }));
    });
    at(50, [=, this] {
      booth("hall").set_remaining(0);
      begin("an empty ribbon", of("hall", [](const json& one) {
              return one["ribbon"]["prints_remaining"] == 0 && one["status"] == 2;
            }));
    });
    at(62, [this] {
      booth("cable").plug();
      end("a pulled cable");
    });
    at(64, [this] {
      booth("hall").set_remaining(TOTAL);
      end("a low ribbon");
      end("an empty ribbon");
    });
    at(66, [=, this] {
      scheduler_.pause("paused");
      begin("a paused queue", of("paused", [](const json& one) {
              return one["refresh"]["outcome"] == "paused" && one["status"] == 3;
            }));
    });
    at(78, [this] {
      scheduler_.resume("paused");
      end("a paused queue");
    });
    at(82, [this] {
      begin("a scheduler that hangs",
            [](const json& view) { return !view["servers"].at(0)["error"].is_null(); });
      kill(scheduler_.pid(), SIGSTOP);
      for (int i = 0; i < 200; ++i) {
        std::this_thread::sleep_for(milliseconds(50));
        read_views();
      }
      kill(scheduler_.pid(), SIGCONT);
      end("a scheduler that hangs");
    });
    at(98, [this] { scheduler_.restart(SIGTERM); });
    at(106, [this] {
      kills_.push_back(steady_clock::now());
      scheduler_.restart(SIGKILL);
    });
  }

  void print(std::size_t number) {
    // A scheduler that was killed finds the type of a document by its content: this one is ready to print.
    // The rest are letters, so that no part of it is a request of the filter.
    std::string bytes =
        "\033@print " + std::to_string(prints_.size()) + " for " + booths_[number]->queue() + "\n";
    for (const std::size_t size = bytes.size() + 1000 + random_() % 40000; bytes.size() < size;) {
      bytes += static_cast<char>('a' + random_() % 26);
    }
    bytes += "\n";
    const int job = scheduler_.send_raw(booths_[number]->queue(), bytes);
    booths_[number]->use_print();
    prints_.push_back({job, number, bytes, steady_clock::now()});
  }

  void begin(const std::string& name, std::function<bool(const json&)> is_shown) {
    troubles_.push_back({name, std::move(is_shown), steady_clock::now()});
  }
  void end(const std::string& name) {
    const auto trouble =
        std::ranges::find_if(troubles_, [&](const auto& one) { return one.name == name && !one.end; });
    trouble->end = steady_clock::now();
  }

  /// Compares every view that the monitor has written since the last call with what the printers were set to.
  void read_views() {
    const Time now = steady_clock::now();
    std::ifstream file(views_);
    file.seekg(views_read_);
    for (std::string line; std::getline(file, line) && !file.eof();) {
      views_read_ = file.tellg();
      const auto view = json::parse(line);
      ++views_seen_;
      for (const auto& one : booths_) {
        const auto& queue = queue_of(view, one->queue());
        if (queue.empty()) {
          continue;
        }
        if (one->is_unknown(queue)) {
          ++unknown_readings_;
        } else if (!one->is_true(queue, now)) {
          ++false_readings_;
          fprintf(stderr, "a false reading of %s: %s\nits printer had, seconds ago:%s\n",
                  one->queue().c_str(), queue.dump().c_str(), one->history(now).c_str());
        }
      }
      for (auto& trouble : troubles_) {
        const bool is_shown = trouble.is_shown(view);
        if (is_shown && !trouble.shown && !trouble.end) {
          trouble.shown = now;
        }
        if (!is_shown && !trouble.shown && trouble.end && !trouble.recovered) {
          fprintf(stderr, "the last view before the end of %s: %s\n", trouble.name.c_str(),
                  last_view_.dump().c_str());
        }
        if (!is_shown && trouble.end && !trouble.recovered) {
          trouble.recovered = now;
        }
      }
      last_view_ = view;
    }
    std::ifstream page(page_);
    const std::string text(std::istreambuf_iterator<char>(page), {});
    cut_pages_ += !text.empty() && !text.ends_with("</html>\n");
  }

  [[nodiscard]] Sizes sizes() const {
    Sizes sizes{size_of(monitor_->pid()), {}, size_of(scheduler_.pid())};
    const std::string pid = std::to_string(monitor_->pid());
    std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
    for (pid_t child = 0; children >> child;) {
      sizes.child = size_of(child);
    }
    return sizes;
  }

  /// Returns the state of the print's job; nothing if the scheduler has lost it.
  [[nodiscard]] std::optional<ipp_jstate_t> state_of(const Print& print) const {
    // A scheduler that has lost a job gives its number to the next one.
    const bool has_new_owner = std::ranges::any_of(
        prints_, [&](const auto& one) { return one.job == print.job && one.sent > print.sent; });
    if (has_new_owner) {
      return std::nullopt;
    }
    try {
      return scheduler_.job_state(print.job);
    } catch (const std::runtime_error&) {
      return std::nullopt;
    }
  }

  /// Returns whether the scheduler was killed before it had saved the print's job, which it does within 30 s
  /// (DirtyCleanInterval).
  [[nodiscard]] bool was_killed_after(const Print& print) const {
    return std::ranges::any_of(
        kills_, [&](const Time& kill) { return kill >= print.sent && kill - print.sent <= seconds(31); });
  }

  bool all_have_ended() const {
    return std::ranges::all_of(prints_, [&](const auto& one) {
      return state_of(one).value_or(IPP_JSTATE_COMPLETED) >= IPP_JSTATE_CANCELED;
    });
  }

  /// Waits until the last prints have ended and all views are well again, then ends the monitor.
  bool finish(const Sizes& early) {
    for (const Time limit = steady_clock::now() + LAST_PRINTS; steady_clock::now() < limit;) {
      read_views();
      if (all_have_ended() && is_well(last_view_)) {
        break;
      }
      std::this_thread::sleep_for(milliseconds(100));
    }
    const bool well = is_well(last_view_);
    const Sizes late = sizes();
    const bool ran = !monitor_->wait(milliseconds(0));
    monitor_->signal(SIGTERM);
    const bool ended = monitor_->exit_status(seconds(30)) == 128 + SIGTERM;

    std::size_t arrived = 0;
    std::size_t twice = 0;
    std::size_t completed = 0;
    std::size_t lost_by_kill = 0;
    std::vector<int> sent;
    for (const auto& one : prints_) {
      const auto count = booths_[one.booth]->cable().count(one.bytes);
      arrived += count > 0;
      twice += count > 1;
      const auto state = state_of(one);
      completed += state == IPP_JSTATE_COMPLETED;
      if (!state && was_killed_after(one)) {
        ++lost_by_kill;
      } else if (state != IPP_JSTATE_COMPLETED || count == 0) {
        fprintf(stderr, "job %d for %s is %s, and arrived %zu times\n", one.job,
                booths_[one.booth]->queue().c_str(), state ? ippEnumString("job-state", *state) : "missing",
                count);
        for (const auto& line : scheduler_.job_log(one.job)) {
          fprintf(stderr, "  %s\n", line.c_str());
        }
      }
      sent.push_back(one.job);
    }
    auto history = all_jobs(scheduler_);
    std::ranges::sort(history);
    std::ranges::sort(sent);
    sent.erase(std::unique(sent.begin(), sent.end()), sent.end());
    const std::size_t left = scheduler_.running_filters().size();

    printf("| | |\n|---|--:|\n");
    printf("| prints sent, arrived byte for byte, completed in the history | %zu, %zu, %zu |\n",
           prints_.size(), arrived, completed);
    printf("| prints that arrived twice; jobs that were lost because the scheduler was killed | %zu; %zu |\n",
           twice, lost_by_kill);
    printf("| jobs in the history that are not prints; prints that are not there | %zu, %zu |\n",
           not_in(history, sent), not_in(sent, history));
    printf(
        "| views; readings in them that were false at their age; pages that were cut short | %zu; %zu; %zu "
        "|\n",
        views_seen_, false_readings_, cut_pages_);
    printf("| readings of the slow printer that were shown as unknown | %zu |\n", unknown_readings_);
    bool shown = true;
    std::map<std::string, std::vector<Trouble>> kinds;
    for (const auto& trouble : troubles_) {
      kinds[trouble.name].push_back(trouble);
    }
    for (const auto& [name, list] : kinds) {
      std::size_t seen = 0;
      std::size_t over = 0;
      double latest_seen = 0;
      double latest_over = 0;
      for (const auto& one : list) {
        seen += one.shown.has_value();
        over += one.recovered.has_value();
        latest_seen = std::max(latest_seen, one.shown ? length(one.begin, *one.shown) : 0);
        latest_over = std::max(latest_over, one.end && one.recovered ? length(*one.end, *one.recovered) : 0);
      }
      shown = shown && seen == list.size() && over == list.size();
      printf(
          "| %s: times, shown, after at most; recovery shown, after at most | %zu, %zu, %.1f s; %zu, %.1f s "
          "|\n",
          name.c_str(), list.size(), seen, latest_seen, over, latest_over);
    }
    const auto row = [](const char* what, const ProcessSize& one, const ProcessSize& other) {
      printf(
          "| %s, after the first %d s and at the end: memory in KiB; descriptors; children | %ld, %ld; %zu, "
          "%zu; "
          "%zu, %zu |\n",
          what, CYCLE, one.resident_kib, other.resident_kib, one.descriptors, other.descriptors, one.children,
          other.children);
    };
    row("the monitor", early.monitor, late.monitor);
    row("its process for the server", early.child, late.child);
    row("the scheduler", early.scheduler, late.scheduler);
    const auto outputs = std::distance(std::filesystem::directory_iterator(folder_.path()), {});
    printf("| filters left over; files that the monitor wrote | %zu; %td |\n", left, outputs);
    printf("\nThe monitor %s, and the last view was %s.\n",
           ran && ended ? "ran to the end" : "ended early or did not end",
           well ? "all well" : "not all well");
    fflush(stdout);

    // A process's final size varies by some pages.
    constexpr long pages_kib = 1024;
    const auto grows = [](const ProcessSize& one, const ProcessSize& other) {
      return other.resident_kib > one.resident_kib + pages_kib || other.descriptors > one.descriptors + 1 ||
             other.zombies > 0;
    };
    return ran && ended && well && shown && arrived + lost_by_kill >= prints_.size() &&
           completed + lost_by_kill == prints_.size() && not_in(history, sent) == 0 && views_seen_ > 0 &&
           false_readings_ == 0 && cut_pages_ == 0 && left == 0 && outputs == 3 &&
           !grows(early.monitor, late.monitor) && !grows(early.child, late.child) &&
           late.monitor.children == 1;
  }

  static double length(Time from, Time to) { return std::chrono::duration<double>(to - from).count(); }

  static std::size_t not_in(const std::vector<int>& ones, const std::vector<int>& others) {
    return static_cast<std::size_t>(
        std::ranges::count_if(ones, [&](int one) { return !std::ranges::binary_search(others, one); }));
  }

  [[nodiscard]] static bool is_well(const json& view) { return !view.is_null() && view["status"] == 0; }

  PrivateScheduler scheduler_{{.configuration = PrivateScheduler::Configuration::DEFAULT}};
  TemporaryFolder folder_;
  std::filesystem::path views_ = folder_.path() / "views";
  std::filesystem::path page_ = folder_.path() / "index.html";
  std::filesystem::path metrics_ = folder_.path() / "brenvellis.prom";
  std::vector<std::unique_ptr<Booth>> booths_;
  std::unique_ptr<ChildProcess> monitor_;
  std::vector<Print> prints_;
  std::vector<Trouble> troubles_;
  std::vector<Time> kills_;
  std::mt19937 random_;
  std::streamoff views_read_ = 0;
  std::size_t views_seen_ = 0;
  std::size_t false_readings_ = 0;
  std::size_t unknown_readings_ = 0;
  std::size_t cut_pages_ = 0;
  json last_view_;
};

}  // namespace

int main(int argc, char** argv) {
  const int length = argc > 1 ? std::atoi(argv[1]) : 600;
  const int prints = argc > 2 ? std::atoi(argv[2]) : 400;
  if (length < 1 || prints < 1) {
    fprintf(stderr, "usage: day [SECONDS [PRINTS]]\n");
    return 64;
  }
  try {
    Day day;
    return day.run(length, prints) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    fprintf(stderr, "day: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
