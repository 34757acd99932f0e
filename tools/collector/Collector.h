#pragma once
// The local beacon collector: takes the batches that the library posts, keeps
// every beacon (optionally in SQLite), rebuilds each view's state from the
// de-duplicated beacons, validates what it receives and reports each view's
// quality of experience.
//
// Thread rules: every member function may be called from any thread; the
// collector serialises them with one mutex (the HTTP server calls `ingestBatch`
// from its worker threads).

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace tav::collector {

using Json = nlohmann::json;

class BeaconStore;

/// Where a batch came from and when it arrived.
struct BatchInfo {
  std::string remote;             // peer address, "" when unknown
  std::int64_t receivedAtMs = 0;  // wall clock, ms since the epoch
};

/// What the collector did with one request body.
struct IngestResult {
  int status = 200;                 // HTTP status to answer: 200, or 400 for a malformed batch
  std::string error;                // why a batch was rejected ("" when accepted)
  std::size_t beacons = 0;          // beacons accepted from this batch
  std::size_t violations = 0;       // validation findings raised by this batch
  std::vector<std::string> events;  // the beacons' "e" values, in order
};

/// A finding of the validation; counted and listed, never fatal.
struct Violation {
  std::string kind;    // "missing-e", "e-not-text", "missing-key", "sequence-gap", ...
  std::string viewId;  // "" when not tied to a view
  std::string detail;
};

class Collector {
 public:
  /// A collector that persists nothing.
  Collector();
  /// A collector that also keeps every batch in `store` (may be null).
  explicit Collector(std::unique_ptr<BeaconStore> store);
  ~Collector();
  Collector(const Collector&) = delete;
  Collector& operator=(const Collector&) = delete;

  /// Parses and takes one request body (the JSON batch document). A body that is
  /// not a JSON object with an "events" array of objects (and, when present, a
  /// "metadata" object) is rejected whole with status 400; beacons of an accepted
  /// batch are validated one by one.
  IngestResult ingestBatch(std::string_view body, const BatchInfo& info);
  /// The same for a parsed document whose body was `bytes` long (a stored batch,
  /// say). A discarded (unparsable) document is rejected like a malformed body.
  IngestResult ingestDocument(const Json& document, const BatchInfo& info, std::size_t bytes);

  /// Counts (and stores) a request refused before it reached `ingestBatch`, such
  /// as a body over the size limit.
  void recordRejected(const BatchInfo& info, std::size_t bytes, std::string_view error);

  /// The whole report as JSON: {"views": [...], "players": [...],
  /// "totals": {...}, "violations": [...]}. Views come in order of arrival; each
  /// carries its rebuilt "state" (short key -> latest value), its "metrics"
  /// (times in ms, percentages as percent), its "sequence" and beacon counts.
  [[nodiscard]] Json report() const;
  /// The same report as a human-readable table (formatReport of `report()`).
  [[nodiscard]] std::string textReport() const;

  /// Number of beacons accepted so far.
  [[nodiscard]] std::size_t beaconCount() const;

 private:
  struct State;
  mutable std::mutex _mutex;
  std::unique_ptr<State> _state;
  std::unique_ptr<BeaconStore> _store;
};

/// Renders a report (as `Collector::report` makes it) as a human-readable table.
[[nodiscard]] std::string formatReport(const Json& report);

}  // namespace tav::collector
