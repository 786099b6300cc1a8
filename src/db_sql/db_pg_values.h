// Values on their way to a PostgreSQL server and back, in its binary form.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "db_sql/db_pg_functions.h"
#include "misc/bytes.h"

namespace crv {

/// The parameters of a statement, or a row that is copied into a table: in their order, as their types (bigint,
/// boolean, bytea, bytea[], bigint[]) are sent.
class PgValues {
  public:
    PgValues& octets(ByteView value);
    PgValues& number(int64_t value);
    PgValues& flag(bool value);
    PgValues& list(std::span<const Bytes> values);
    PgValues& list(std::span<const int64_t> values);
    PgValues& null();
    /// Takes all values away; their memory stays for the next row.
    PgValues& clear();

    /// The parameters for libpq, good until the object changes.
    struct Pointers {
        std::vector<const char*> values;
        std::vector<int> lengths, formats;
    };
    [[nodiscard]] Pointers pointers() const;
    /// Appends the values as one row of a binary COPY.
    void appendRow(Bytes& rows) const;

    static void beginRows(Bytes& rows);
    static void endRows(Bytes& rows);

  private:
    struct Place {
        size_t at;
        int length;  ///< -1: no value
    };
    void place(size_t from);

    Bytes data_;
    std::vector<Place> places_;
};

/// What a statement answered.
class PgResult {
  public:
    PgResult() : PgResult(nullptr, nullptr) {}
    PgResult(PGresult* result, const PgFunctions* functions) : result_(result, Clear{functions}) {}

    [[nodiscard]] PGresult* get() const { return result_.get(); }
    [[nodiscard]] int rows() const;
    [[nodiscard]] bool isNull(int row, int column) const;
    /// Empty for no value; refers to the result.
    [[nodiscard]] ByteView octets(int row, int column) const;
    /// An integer of 2, 4 or 8 octets; 0 for anything else.
    [[nodiscard]] int64_t number(int row, int column) const;
    [[nodiscard]] bool flag(int row, int column) const;

  private:
    struct Clear {
        const PgFunctions* functions;
        void operator()(PGresult* result) const { functions->clear(result); }
    };
    std::unique_ptr<PGresult, Clear> result_;
};

}  // namespace crv
