#pragma once
// SQLite storage of everything the collector accepts: one row per batch (arrival
// time, peer, size, metadata) and one per beacon (its JSON text and the fields it
// is looked up by), plus one row per rejected request. Thread-safe.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

struct sqlite3;
struct sqlite3_stmt;

namespace tav::collector {

struct BatchInfo;

class BeaconStore {
 public:
  /// Opens or creates the database at `path` (":memory:" for a private one).
  /// Throws std::runtime_error when it cannot.
  explicit BeaconStore(const std::string& path);
  ~BeaconStore();
  BeaconStore(const BeaconStore&) = delete;
  BeaconStore& operator=(const BeaconStore&) = delete;

  /// Stores one accepted batch and its beacons in one transaction. Failures are
  /// logged to stderr and dropped: storage never stops the collector serving.
  void storeBatch(const BatchInfo& info, std::size_t bytes, const nlohmann::json& document);
  /// Records a rejected request: when, from where, its size and why.
  void storeRejected(const BatchInfo& info, std::size_t bytes, std::string_view error);

  /// Calls `visit` with each stored batch, oldest first, as (arrival info, size,
  /// the batch document rebuilt from its metadata and beacons).
  void forEachBatch(
      const std::function<void(const BatchInfo&, std::size_t, const nlohmann::json&)>& visit);

 private:
  void exec(const char* sql);

  std::mutex _mutex;
  sqlite3* _db = nullptr;
  sqlite3_stmt* _insertBatch = nullptr;
  sqlite3_stmt* _insertBeacon = nullptr;
  sqlite3_stmt* _insertRejected = nullptr;
};

}  // namespace tav::collector
