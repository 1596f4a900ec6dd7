// ModelContext: the records of the store as objects. A fetch returns shared
// records that the caller may change in place; save() writes every change in
// one transaction. Each record is remembered as it was read, and a save
// writes only the fields that changed since, so two processes that change
// different fields of one record never undo each other's work.
//
// A fetch re-reads the store, so it sees what other processes have saved:
// fields this context has not changed take the stored values, fields it has
// changed keep the local value until save. The same record fetched twice is
// the same object. Records nobody outside the context holds any more are
// forgotten after the next save.
//
// Thread rules: a context and its records belong to one thread (the main
// thread for the main context). Use newContext() of the container elsewhere.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <vector>

#include "library/database.h"
#include "library/record_schema.h"
#include "platform/log.h"

namespace klipora::library {

// Which rows to fetch. `predicate` and `sortBy` are SQL over the record's
// field names, with '?' placeholders bound from `arguments` in order.
struct FetchDescriptor {
  std::string predicate;
  std::vector<SqlValue> arguments;
  std::string sortBy;
  std::optional<int64_t> limit;
  int64_t offset = 0;
};

namespace internal {

class RegistryBase {
 public:
  virtual ~RegistryBase() = default;
  virtual bool hasChanges() const = 0;
  virtual Status write(Database& db) = 0;
  virtual void didSave() = 0;
  virtual void rollback() = 0;
};

template <typename R>
class Registry final : public RegistryBase {
 public:
  enum class State { persisted, inserted, deleted };
  struct Entry {
    std::shared_ptr<R> live;
    std::optional<R> snapshot;  // as last read or saved; absent for new records
    State state = State::persisted;
  };

  static std::string keyOf(const R& r) {
    SqlValue v = schemaOf<R>().key().get(r);
    auto* text = std::get_if<std::string>(&v);
    return text ? *text : std::string();
  }

  // Builds a record from a row, or merges the row into the known record.
  std::shared_ptr<R> adopt(const SqlRow& row) {
    const auto& columns = schemaOf<R>().columns;
    auto* key = std::get_if<std::string>(&row[0]);
    if (!key) return nullptr;
    auto it = entries.find(*key);
    if (it == entries.end()) {
      auto record = std::make_shared<R>();
      for (size_t c = 0; c < columns.size(); ++c) {
        if (!columns[c].set(*record, row[c])) {
          log::warning("Library", "%s %s: stored %s has an unexpected type; using the default",
                       schemaOf<R>().table.c_str(), key->c_str(), columns[c].name.c_str());
        }
      }
      entries.emplace(*key, Entry{record, *record, State::persisted});
      return record;
    }
    Entry& e = it->second;
    if (e.state == State::deleted) return nullptr;
    R stored = e.snapshot ? *e.snapshot : *e.live;
    for (size_t c = 0; c < columns.size(); ++c) columns[c].set(stored, row[c]);
    for (size_t c = 0; c < columns.size(); ++c) {
      bool changedHere = e.snapshot && columns[c].get(*e.live) != columns[c].get(*e.snapshot);
      if (!changedHere) columns[c].set(*e.live, row[c]);
    }
    e.snapshot = std::move(stored);
    if (e.state == State::inserted) e.state = State::persisted;
    return e.live;
  }

  bool hasChanges() const override {
    for (const auto& [key, e] : entries) {
      if (e.state != State::persisted || changedColumns(e).size() > 0) return true;
    }
    return false;
  }

  std::vector<const Column<R>*> changedColumns(const Entry& e) const {
    std::vector<const Column<R>*> changed;
    if (!e.snapshot) return changed;
    for (const auto& c : schemaOf<R>().columns) {
      if (c.get(*e.live) != c.get(*e.snapshot)) changed.push_back(&c);
    }
    return changed;
  }

  Status write(Database& db) override {
    const auto& schema = schemaOf<R>();
    const std::string table = quoteIdentifier(schema.table);
    const std::string keyColumn = quoteIdentifier(schema.key().name);
    for (auto& [key, e] : entries) {
      if (e.state == State::deleted) {
        ASSIGN_OR_RETURN(auto n, db.execute("DELETE FROM " + table + " WHERE " + keyColumn + " = ?",
                                            {SqlValue(key)}));
        (void)n;
      } else if (e.state == State::inserted) {
        std::string names, marks;
        std::vector<SqlValue> values;
        for (const auto& c : schema.columns) {
          names += (names.empty() ? "" : ", ") + quoteIdentifier(c.name);
          marks += marks.empty() ? "?" : ", ?";
          values.push_back(c.get(*e.live));
        }
        ASSIGN_OR_RETURN(auto n, db.execute("INSERT INTO " + table + " (" + names +
                                                ") VALUES (" + marks + ")",
                                            values));
        (void)n;
      } else {
        auto changed = changedColumns(e);
        if (changed.empty()) continue;
        std::string sets;
        std::vector<SqlValue> values;
        for (const auto* c : changed) {
          sets += (sets.empty() ? "" : ", ") + quoteIdentifier(c->name) + " = ?";
          values.push_back(c->get(*e.live));
        }
        values.push_back(SqlValue(key));
        ASSIGN_OR_RETURN(auto n, db.execute("UPDATE " + table + " SET " + sets + " WHERE " +
                                                keyColumn + " = ?",
                                            values));
        if (n == 0) {
          log::warning("Library", "%s %s was removed by another process; its changes are dropped",
                       schema.table.c_str(), key.c_str());
        }
      }
    }
    return Status::Ok();
  }

  void didSave() override {
    for (auto it = entries.begin(); it != entries.end();) {
      Entry& e = it->second;
      if (e.state == State::deleted || e.live.use_count() == 1) {
        it = entries.erase(it);
        continue;
      }
      e.state = State::persisted;
      e.snapshot = *e.live;
      ++it;
    }
  }

  void rollback() override {
    for (auto it = entries.begin(); it != entries.end();) {
      Entry& e = it->second;
      if (e.state == State::inserted) {
        it = entries.erase(it);
        continue;
      }
      e.state = State::persisted;
      if (e.snapshot) *e.live = *e.snapshot;
      ++it;
    }
  }

  std::unordered_map<std::string, Entry> entries;
};

}  // namespace internal

class ModelContext {
 public:
  explicit ModelContext(std::unique_ptr<Database> db);
  ~ModelContext();
  ModelContext(const ModelContext&) = delete;
  ModelContext& operator=(const ModelContext&) = delete;

  template <typename R>
  Result<std::vector<std::shared_ptr<R>>> fetch(const FetchDescriptor& descriptor = {}) {
    auto& registry = registryFor<R>();
    ASSIGN_OR_RETURN(auto rows, db_->query(selectSQL<R>(descriptor), descriptor.arguments));
    std::vector<std::shared_ptr<R>> out;
    out.reserve(rows.size());
    for (const auto& row : rows) {
      if (auto record = registry.adopt(row)) out.push_back(std::move(record));
    }
    return out;
  }

  // Reads records without keeping them: each row becomes a fresh record that
  // this context does not know, so a save never writes it, and memory is
  // only what the caller holds. For reading a large table a page at a time.
  template <typename R>
  Result<std::vector<R>> fetchDetached(const FetchDescriptor& descriptor) {
    ASSIGN_OR_RETURN(auto rows, db_->query(selectSQL<R>(descriptor), descriptor.arguments));
    const auto& columns = schemaOf<R>().columns;
    std::vector<R> out(rows.size());
    for (size_t r = 0; r < rows.size(); ++r) {
      for (size_t c = 0; c < columns.size(); ++c) (void)columns[c].set(out[r], rows[r][c]);
    }
    return out;
  }

  // The record with this identity (UUID text or composite id), or nullptr.
  template <typename R>
  Result<std::shared_ptr<R>> fetchByKey(const std::string& key) {
    FetchDescriptor d;
    d.predicate = quoteIdentifier(schemaOf<R>().key().name) + " = ?";
    d.arguments = {SqlValue(key)};
    ASSIGN_OR_RETURN(auto records, fetch<R>(d));
    if (records.empty()) return std::shared_ptr<R>();
    return records.front();
  }

  template <typename R>
  Result<int64_t> fetchCount(const FetchDescriptor& descriptor = {}) {
    std::string sql = "SELECT count(*) FROM " + quoteIdentifier(schemaOf<R>().table);
    if (!descriptor.predicate.empty()) sql += " WHERE " + descriptor.predicate;
    ASSIGN_OR_RETURN(auto rows, db_->query(sql, descriptor.arguments));
    return std::get<int64_t>(rows.at(0).at(0));
  }

  // Adds a new record; it is written by the next save().
  template <typename R>
  void insert(std::shared_ptr<R> record) {
    auto& registry = registryFor<R>();
    std::string key = internal::Registry<R>::keyOf(*record);
    registry.entries[key] = {std::move(record), std::nullopt, internal::Registry<R>::State::inserted};
  }

  // Marks a record for deletion at the next save(). An unsaved insert is dropped.
  template <typename R>
  void remove(const std::shared_ptr<R>& record) {
    auto& registry = registryFor<R>();
    std::string key = internal::Registry<R>::keyOf(*record);
    auto it = registry.entries.find(key);
    using State = typename internal::Registry<R>::State;
    if (it == registry.entries.end()) {
      registry.entries[key] = {record, *record, State::deleted};
    } else if (it->second.state == State::inserted) {
      registry.entries.erase(it);
    } else {
      it->second.state = State::deleted;
    }
  }

  // Records inserted and not yet saved.
  template <typename R>
  std::vector<std::shared_ptr<R>> pendingInserts() {
    std::vector<std::shared_ptr<R>> out;
    for (auto& [key, e] : registryFor<R>().entries) {
      if (e.state == internal::Registry<R>::State::inserted) out.push_back(e.live);
    }
    return out;
  }

  bool hasChanges() const;
  // Writes all inserts, deletions and changed fields in one transaction. On
  // failure nothing is written and the changes stay pending for a retry.
  Status save();
  // Forgets unsaved inserts and deletions and restores changed fields.
  void rollback();
  // True when another connection committed since the last call.
  Result<bool> hasExternalChanges();

  Database& database() { return *db_; }

 private:
  template <typename R>
  internal::Registry<R>& registryFor() {
    auto& slot = registries_[std::type_index(typeid(R))];
    if (!slot) slot = std::make_unique<internal::Registry<R>>();
    return static_cast<internal::Registry<R>&>(*slot);
  }

  template <typename R>
  static std::string selectSQL(const FetchDescriptor& d) {
    const auto& schema = schemaOf<R>();
    std::string sql = "SELECT ";
    for (size_t i = 0; i < schema.columns.size(); ++i) {
      if (i) sql += ", ";
      sql += quoteIdentifier(schema.columns[i].name);
    }
    sql += " FROM " + quoteIdentifier(schema.table);
    if (!d.predicate.empty()) sql += " WHERE " + d.predicate;
    if (!d.sortBy.empty()) sql += " ORDER BY " + d.sortBy;
    if (d.limit) sql += " LIMIT " + std::to_string(*d.limit) + " OFFSET " + std::to_string(d.offset);
    return sql;
  }

  std::unique_ptr<Database> db_;
  std::unordered_map<std::type_index, std::unique_ptr<internal::RegistryBase>> registries_;
  std::optional<int64_t> lastDataVersion_;
};

}  // namespace klipora::library
