#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ValueStore.h"

namespace agentsim {

// What a real agent answered while the simulator relayed its clients, kept
// as a profile that replays it: every address asked, with its answers in
// order, and every event the agent sent.
class Capture {
 public:
  // One request text and the agent's reply to it.
  void AddReply(const std::string& request, const std::string& reply);
  // A frame the agent sent on its own.
  void AddEvent(const std::string& text);
  size_t Size() const { return values_.size() + events_.size(); }

  // The profile text; its description names `when`.
  std::string ToProfile(const std::string& when) const;

 private:
  // Equal answers in a row, counted.
  struct Run {
    AgentValue answer;
    size_t count;
  };
  struct Entry {
    Address at;
    std::vector<Run> runs;
  };

  unsigned UnknownStatus() const;

  std::vector<Entry> values_;  // in the order first asked
  std::map<Address, size_t> index_;
  std::vector<std::string> events_;  // profile entries as compact JSON
  std::optional<unsigned> cabinet_;         // the agent's 0xE204 answer
  std::optional<unsigned> askedCabinet_;    // "CA" of the first request, failing that
};

}  // namespace agentsim
