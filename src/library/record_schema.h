// RecordSchema<R>: how one record type is stored. The table is named after the
// record and each column after its field, in declaration order, so that the
// library can be read with the sqlite3 shell. Each record header declares
// `schemaOf<R>()`; its .cc lists the columns with column(&R::field, "field").
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "library/sql_value.h"

namespace klipora::library {

template <typename R>
struct Column {
  std::string name;
  ValueKind kind;
  bool nullable;
  std::function<SqlValue(const R&)> get;
  // False when the stored value has a type the field cannot take.
  std::function<bool(R&, const SqlValue&)> set;
};

template <typename R, typename T>
Column<R> column(T R::*member, const char* name) {
  return Column<R>{name, SqlTraits<T>::kind, kIsOptional<T>,
                   [member](const R& r) { return SqlTraits<T>::to(r.*member); },
                   [member](R& r, const SqlValue& v) { return SqlTraits<T>::from(v, r.*member); }};
}

template <typename R>
struct RecordSchema {
  std::string table;
  std::vector<Column<R>> columns;  // columns[0] is the identity
  // Extra statements run after the table exists (indexes), idempotent.
  std::vector<std::string> extraDDL;

  const Column<R>& key() const { return columns.front(); }
  const Column<R>* find(const std::string& name) const {
    for (const auto& c : columns) {
      if (c.name == name) return &c;
    }
    return nullptr;
  }
};

// Specialised by each record type in its own header/.cc.
template <typename R>
const RecordSchema<R>& schemaOf();

}  // namespace klipora::library
