#include "BeaconStore.h"

#include <sqlite3.h>

#include <cstdio>
#include <stdexcept>

#include "Collector.h"
#include "tav/data/TAVSDKPlayerData.h"
#include "tav/data/TAVSDKViewData.h"

namespace tav::collector {
namespace {

constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS batches(
  id INTEGER PRIMARY KEY,
  received_at_ms INTEGER NOT NULL,
  remote TEXT NOT NULL,
  bytes INTEGER NOT NULL,
  beacon_count INTEGER NOT NULL,
  transmission_timestamp INTEGER,
  rtt_ms INTEGER,
  metadata TEXT);
CREATE TABLE IF NOT EXISTS beacons(
  id INTEGER PRIMARY KEY,
  batch_id INTEGER NOT NULL REFERENCES batches(id),
  position INTEGER NOT NULL,
  event TEXT,
  view_id TEXT,
  player_instance_id TEXT,
  view_seq TEXT,
  player_seq TEXT,
  body TEXT NOT NULL);
CREATE INDEX IF NOT EXISTS beacons_by_view ON beacons(view_id);
CREATE TABLE IF NOT EXISTS rejected(
  id INTEGER PRIMARY KEY,
  received_at_ms INTEGER NOT NULL,
  remote TEXT NOT NULL,
  bytes INTEGER NOT NULL,
  error TEXT NOT NULL);
)sql";

void bindText(sqlite3_stmt* statement, int index, std::string_view text) {
  sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

/// Binds a beacon member's text (or its JSON text when it is not a string); NULL when absent.
void bindMember(sqlite3_stmt* statement, int index, const nlohmann::json& beacon, const char* key) {
  const auto it = beacon.find(key);
  if (it == beacon.end() || it->is_null()) {
    sqlite3_bind_null(statement, index);
  } else if (it->is_string()) {
    bindText(statement, index, it->get_ref<const std::string&>());
  } else {
    bindText(statement, index, it->dump());
  }
}

void bindOptionalInt(sqlite3_stmt* statement, int index, const nlohmann::json& object,
                     const char* key) {
  const auto it = object.find(key);
  if (it != object.end() && it->is_number_integer()) {
    sqlite3_bind_int64(statement, index, it->get<std::int64_t>());
  } else {
    sqlite3_bind_null(statement, index);
  }
}

std::string columnText(sqlite3_stmt* statement, int column) {
  const auto* text = sqlite3_column_text(statement, column);
  return text ? reinterpret_cast<const char*>(text) : "";
}

}  // namespace

BeaconStore::BeaconStore(const std::string& path) {
  if (sqlite3_open(path.c_str(), &_db) != SQLITE_OK) {
    const std::string message = _db ? sqlite3_errmsg(_db) : "out of memory";
    sqlite3_close(_db);
    throw std::runtime_error("cannot open " + path + ": " + message);
  }
  try {
    exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;");
    exec(kSchema);
    const auto prepare = [this](const char* sql, sqlite3_stmt** statement) {
      if (sqlite3_prepare_v2(_db, sql, -1, statement, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(_db));
      }
    };
    prepare(
        "INSERT INTO batches(received_at_ms, remote, bytes, beacon_count, "
        "transmission_timestamp, rtt_ms, metadata) VALUES(?,?,?,?,?,?,?)",
        &_insertBatch);
    prepare(
        "INSERT INTO beacons(batch_id, position, event, view_id, player_instance_id, view_seq, "
        "player_seq, body) VALUES(?,?,?,?,?,?,?,?)",
        &_insertBeacon);
    prepare("INSERT INTO rejected(received_at_ms, remote, bytes, error) VALUES(?,?,?,?)",
            &_insertRejected);
  } catch (const std::exception& e) {
    sqlite3_finalize(_insertBatch);
    sqlite3_finalize(_insertBeacon);
    sqlite3_finalize(_insertRejected);
    sqlite3_close(_db);
    throw std::runtime_error("cannot use " + path + ": " + e.what());
  }
}

BeaconStore::~BeaconStore() {
  sqlite3_finalize(_insertBatch);
  sqlite3_finalize(_insertBeacon);
  sqlite3_finalize(_insertRejected);
  sqlite3_close(_db);
}

void BeaconStore::exec(const char* sql) {
  char* error = nullptr;
  if (sqlite3_exec(_db, sql, nullptr, nullptr, &error) != SQLITE_OK) {
    const std::string message = error ? error : "unknown error";
    sqlite3_free(error);
    throw std::runtime_error(message);
  }
}

void BeaconStore::storeBatch(const BatchInfo& info, std::size_t bytes,
                             const nlohmann::json& document) {
  const std::lock_guard lock(_mutex);
  try {
    exec("BEGIN");
    const auto& events = document.at("events");
    const auto metadata = document.find("metadata");
    sqlite3_reset(_insertBatch);
    sqlite3_bind_int64(_insertBatch, 1, info.receivedAtMs);
    bindText(_insertBatch, 2, info.remote);
    sqlite3_bind_int64(_insertBatch, 3, static_cast<sqlite3_int64>(bytes));
    sqlite3_bind_int64(_insertBatch, 4, static_cast<sqlite3_int64>(events.size()));
    if (metadata != document.end()) {
      bindOptionalInt(_insertBatch, 5, *metadata, "transmission_timestamp");
      bindOptionalInt(_insertBatch, 6, *metadata, "rtt_ms");
      bindText(_insertBatch, 7, metadata->dump());
    } else {
      sqlite3_bind_null(_insertBatch, 5);
      sqlite3_bind_null(_insertBatch, 6);
      sqlite3_bind_null(_insertBatch, 7);
    }
    if (sqlite3_step(_insertBatch) != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(_db));
    const sqlite3_int64 batchId = sqlite3_last_insert_rowid(_db);
    int position = 0;
    for (const auto& beacon : events) {
      sqlite3_reset(_insertBeacon);
      sqlite3_bind_int64(_insertBeacon, 1, batchId);
      sqlite3_bind_int(_insertBeacon, 2, position++);
      bindMember(_insertBeacon, 3, beacon, "e");
      bindMember(_insertBeacon, 4, beacon, VIEW_ID);
      bindMember(_insertBeacon, 5, beacon, PLAYER_INSTANCE_ID);
      bindMember(_insertBeacon, 6, beacon, VIEW_SEQUENCE_NUMBER);
      bindMember(_insertBeacon, 7, beacon, PLAYER_SEQUENCE_NUMBER);
      bindText(_insertBeacon, 8, beacon.dump());
      if (sqlite3_step(_insertBeacon) != SQLITE_DONE) {
        throw std::runtime_error(sqlite3_errmsg(_db));
      }
    }
    exec("COMMIT");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tav-collector: storing a batch failed: %s\n", e.what());
    sqlite3_exec(_db, "ROLLBACK", nullptr, nullptr, nullptr);
  }
}

void BeaconStore::storeRejected(const BatchInfo& info, std::size_t bytes, std::string_view error) {
  const std::lock_guard lock(_mutex);
  sqlite3_reset(_insertRejected);
  sqlite3_bind_int64(_insertRejected, 1, info.receivedAtMs);
  bindText(_insertRejected, 2, info.remote);
  sqlite3_bind_int64(_insertRejected, 3, static_cast<sqlite3_int64>(bytes));
  bindText(_insertRejected, 4, error);
  if (sqlite3_step(_insertRejected) != SQLITE_DONE) {
    std::fprintf(stderr, "tav-collector: storing a rejection failed: %s\n", sqlite3_errmsg(_db));
  }
}

void BeaconStore::forEachBatch(
    const std::function<void(const BatchInfo&, std::size_t, const nlohmann::json&)>& visit) {
  const std::lock_guard lock(_mutex);
  sqlite3_stmt* batches = nullptr;
  sqlite3_stmt* beacons = nullptr;
  const auto finish = [&] {
    sqlite3_finalize(batches);
    sqlite3_finalize(beacons);
  };
  if (sqlite3_prepare_v2(_db,
                         "SELECT id, received_at_ms, remote, bytes, metadata FROM batches "
                         "ORDER BY id",
                         -1, &batches, nullptr) != SQLITE_OK ||
      sqlite3_prepare_v2(_db, "SELECT body FROM beacons WHERE batch_id = ? ORDER BY position", -1,
                         &beacons, nullptr) != SQLITE_OK) {
    std::fprintf(stderr, "tav-collector: reading the store failed: %s\n", sqlite3_errmsg(_db));
    finish();
    return;
  }
  while (sqlite3_step(batches) == SQLITE_ROW) {
    BatchInfo info{columnText(batches, 2), sqlite3_column_int64(batches, 1)};
    const auto bytes = static_cast<std::size_t>(sqlite3_column_int64(batches, 3));
    nlohmann::json document = {{"events", nlohmann::json::array()}};
    if (const std::string metadata = columnText(batches, 4); !metadata.empty()) {
      document["metadata"] = nlohmann::json::parse(metadata, nullptr, false);
    }
    sqlite3_reset(beacons);
    sqlite3_bind_int64(beacons, 1, sqlite3_column_int64(batches, 0));
    while (sqlite3_step(beacons) == SQLITE_ROW) {
      document["events"].push_back(nlohmann::json::parse(columnText(beacons, 0), nullptr, false));
    }
    visit(info, bytes, document);
  }
  finish();
}

}  // namespace tav::collector
