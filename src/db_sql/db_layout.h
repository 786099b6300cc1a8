// The files of a profile's database directory and the layouts of its tables.
#pragma once

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "db/datafile.h"

namespace crv {

constexpr int16_t kDbPageSize = 4096;
constexpr int16_t kRecIdKeyLen = 17;     ///< record id: recNoEncode
constexpr int16_t kHashKeyLen = 41;      ///< codeDigest of 20 octets, or up to 40 raw octets
constexpr int16_t kEmailKeyLen = 129;    ///< an e-mail address or a name of 128 octets
constexpr int16_t kDnFieldKeyLen = 130;  ///< field type octet and 128 octets of value

/// Indexes by table, in their order.
enum CrtIndex : int { kCrtBySerNum = 0, kCrtByEmail = 1, kCrtBySbjDn = 2 };
enum DnIndex : int { kDnByRecId = 0, kDnByField = 1 };
enum CaIndex : int { kCaByRecId = 0 };
enum AddIndex : int { kAddByRecId = 0, kAddByKeyId = 1, kAddByCrtHash = 2 };

/// One table: the base name of its files, its indexes, and the texts of failures to open and to make it.
struct TableLayout {
    std::string_view file;
    int numIndexes;
    std::array<IndexDesc, 3> descs;
    std::string_view openError;
    std::string_view createError;

    /// Whether the open data file has these indexes.
    [[nodiscard]] bool isThatOf(const DataFile& data) const {
        return data.numIndexes() == numIndexes && std::equal(data.descs(), data.descs() + numIndexes, descs.begin());
    }
};

inline constexpr TableLayout crtTb{
    "certific",
    3,
    {{{kHashKeyLen, kDbPageSize}, {kEmailKeyLen, kDbPageSize}, {kHashKeyLen, kDbPageSize}}},
    "DbCrtCrv::connect. Blad otwrcia tabeli crtTb",
    "DbCrtCrv::create. Blad tworzenia tabeli crtTb"};
inline constexpr TableLayout dnTb{"dnfld",
                                  2,
                                  {{{kRecIdKeyLen, kDbPageSize}, {kDnFieldKeyLen, kDbPageSize}}},
                                  "DbCrtCrv::connect. Blad otwrcia tabeli dnTb",
                                  "DbCrtCrv::create. Blad tworzenia tabeli dnTb"};
inline constexpr TableLayout caTb{"ca",
                                  1,
                                  {{{kRecIdKeyLen, kDbPageSize}}},
                                  "DbCrtCrv::connect. Blad otwrcia tabeli caTb",
                                  "DbCrtCrv::create. Blad tworzenia tabeli caTb"};
inline constexpr TableLayout addIdxTb{
    "addidx",
    3,
    {{{kRecIdKeyLen, kDbPageSize}, {kHashKeyLen, kDbPageSize}, {kHashKeyLen, kDbPageSize}}},
    "DbCrtCrv::connect. Blad otwrcia tabeli addIdxTb",
    "DbCrtCrv::create. Blad tworzenia tabeli addIdxTb"};
/// Made by whoever misses it. Body: seconds since 1970, 8 octets in host order.
inline constexpr TableLayout netCertTimeTb{"netCertTime",
                                           1,
                                           {{{kEmailKeyLen, kDbPageSize}}},
                                           "DbCrtCrv::connect. Blad otwrcia tabeli netCertTimeTb",
                                           "DbCrtCrv::create. Blad tworzenia tabeli netCertTimeTb"};

/// The tables that every database has.
inline constexpr std::array kCertificateTables{&crtTb, &dnTb, &caTb, &addIdxTb};
/// Those whose index 0 is the id of a certificate.
inline constexpr std::array kSideTables{&dnTb, &caTb, &addIdxTb};
inline constexpr std::array kAllTables{&crtTb, &dnTb, &caTb, &addIdxTb, &netCertTimeTb};

inline constexpr std::string_view kLockFileName = "db.lck";
inline constexpr std::string_view kVersionFileName = "version.txt";
inline constexpr std::string_view kVersionText = "7";
inline constexpr std::string_view kImportsFileName = "imports.dat";
inline constexpr std::string_view kCrlIndexFileName = "crl_idx.asn";
inline constexpr std::string_view kCrlIndexTagName = "crl_idx.chk";
inline constexpr std::string_view kCrlExtension = ".crl";
inline constexpr std::string_view kTagExtension = ".chk";
inline constexpr std::string_view kBackupExtension = ".bak";
inline constexpr std::string_view kRollbackLogName = "crl_rollback_log.txt";

}  // namespace crv
