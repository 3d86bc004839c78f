// SPDX-License-Identifier: Apache-2.0
// The rules for one print server: its next request, for all queues.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "monitor/queue_watch.h"

/// ServerWatch is the state machine of a print server. It decides the next request for all its queues and
/// processes the answers. Like QueueWatch, it performs no actions and has no clock.
class ServerWatch {
 public:
  /// @param label   the name under which the server is shown.
  /// @param queues  the queues to watch; empty for all Brenvellis queues.
  ServerWatch(std::string label, std::vector<std::string> queues, const WatchRules& rules, Moment now);

  /// The next step: a request to make now, or nothing before `at` unless an answer comes first.
  struct Plan {
    std::optional<SchedulerRequest> request;
    Moment at = Moment::max();
  };

  /// Returns the next request, which counts as made; no request may be under way.
  [[nodiscard]] Plan next(Moment now);
  /// Processes the answer to that request.
  void take(const SchedulerAnswer& answer, Moment now);

  /// Ends the asking: jobs that are on their way are purged, and no more are sent.
  void wind_up();
  /// Handles that the last request will not be answered.
  void drop_request();

  /// Whether nothing more is to be done, unless the rules are to ask again and again.
  [[nodiscard]] bool is_done() const;
  /// Whether the request that is out is a look.
  [[nodiscard]] bool is_looking() const;
  /// Whether the server was looked at.
  [[nodiscard]] bool has_looked() const { return looked_at_.has_value(); }
  [[nodiscard]] bool has_error() const { return !error_.empty(); }
  /// Whether it has command jobs that are to be purged, or may be about to.
  [[nodiscard]] bool has_jobs() const;

  /// @param time  the time of day at `now`.
  [[nodiscard]] ServerReport report(Moment now, TimeOfDay time) const;

  /// How many queues were sent a command job, and how many of them have answered.
  [[nodiscard]] std::size_t sent() const;
  [[nodiscard]] std::size_t answered() const;

  /// Returns messages for the user, such as about a refused purge; each message once.
  [[nodiscard]] std::vector<std::string> take_notes();

 private:
  [[nodiscard]] std::optional<SchedulerRequest> urgent(Moment now) const;
  [[nodiscard]] std::optional<Moment> look_due(Moment now) const;
  [[nodiscard]] QueueWatch* next_to_ask(Moment now);
  [[nodiscard]] bool has_room(Moment now) const;
  [[nodiscard]] LookRequest look_request(bool queues, std::vector<std::string> names = {}) const;
  [[nodiscard]] LookRequest next_look(Moment now) const;
  void take_look(const LookRequest& request, const Look& look, Moment now);
  void take_error(const SchedulerError& error, Moment now);
  void give_up(const std::string& why);
  [[nodiscard]] std::size_t jobs() const;
  [[nodiscard]] std::size_t dead_jobs() const;

  std::string label_;
  std::vector<std::string> names_;
  WatchRules rules_;
  std::map<std::string, QueueWatch> queues_;

  std::optional<SchedulerRequest> asked_;
  Moment asked_at_;
  Moment began_at_;
  std::optional<Moment> looked_at_;         ///< at jobs
  std::optional<Moment> looked_at_queues_;  ///< at all
  std::size_t all_queues_ = 0;              ///< of the server, also of other drivers
  Moment sent_at_;                          ///< the last command job
  Moment sends_since_;
  std::size_t sends_ = 0;  ///< since then
  int newest_job_ = 0;
  double seconds_ = 0;
  Sightings sightings_;

  std::string error_;  ///< while it does not answer
  std::optional<Moment> away_since_;
  std::chrono::milliseconds retry_pause_{0};
  bool winding_up_ = false;
  bool given_up_ = false;
  bool may_purge_ = true;
  std::vector<std::string> notes_;
};
