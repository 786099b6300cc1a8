// The files of a profile's database directory and the layouts of its tables.
#pragma once

#include <array>
#include <span>
#include <string_view>

#include "db/table_format.h"

namespace crv {

constexpr int16_t dbPageSize = 4096;
constexpr int16_t recIdKeyLen = 17;     ///< record id: recNoEncode
constexpr int16_t hashKeyLen = 41;      ///< codeDigest of 20 octets, or up to 40 raw octets
constexpr int16_t emailKeyLen = 129;    ///< an e-mail address or a name of 128 octets
constexpr int16_t dnFieldKeyLen = 130;  ///< field type octet and 128 octets of value

/// Indexes by table, in their order.
enum CrtIndex : int { crtBySerNum = 0, crtByEmail = 1, crtBySbjDn = 2 };
enum DnIndex : int { dnByRecId = 0, dnByField = 1 };
enum CaIndex : int { caByRecId = 0 };
enum AddIndex : int { addByRecId = 0, addByKeyId = 1, addByCrtHash = 2 };

/// One table: the base name of its files, its indexes, and the texts of failures to open and to make it.
struct TableLayout {
    std::string_view file;
    int numIndexes;
    std::array<IndexDesc, 3> descs;
    std::string_view openError;
    std::string_view createError;
};

inline constexpr TableLayout crtTb{"certific",
                                   3,
                                   {{{hashKeyLen, dbPageSize}, {emailKeyLen, dbPageSize}, {hashKeyLen, dbPageSize}}},
                                   "DbCrtCrv::connect. Blad otwrcia tabeli crtTb",
                                   "DbCrtCrv::create. Blad tworzenia tabeli crtTb"};
inline constexpr TableLayout dnTb{"dnfld",
                                  2,
                                  {{{recIdKeyLen, dbPageSize}, {dnFieldKeyLen, dbPageSize}}},
                                  "DbCrtCrv::connect. Blad otwrcia tabeli dnTb",
                                  "DbCrtCrv::create. Blad tworzenia tabeli dnTb"};
inline constexpr TableLayout caTb{"ca",
                                  1,
                                  {{{recIdKeyLen, dbPageSize}}},
                                  "DbCrtCrv::connect. Blad otwrcia tabeli caTb",
                                  "DbCrtCrv::create. Blad tworzenia tabeli caTb"};
inline constexpr TableLayout addIdxTb{"addidx",
                                      3,
                                      {{{recIdKeyLen, dbPageSize}, {hashKeyLen, dbPageSize}, {hashKeyLen, dbPageSize}}},
                                      "DbCrtCrv::connect. Blad otwrcia tabeli addIdxTb",
                                      "DbCrtCrv::create. Blad tworzenia tabeli addIdxTb"};
/// Made by whoever misses it. Body: seconds since 1970, 8 octets in host order.
inline constexpr TableLayout netCertTimeTb{"netCertTime",
                                           1,
                                           {{{emailKeyLen, dbPageSize}}},
                                           "DbCrtCrv::connect. Blad otwrcia tabeli netCertTimeTb",
                                           "DbCrtCrv::create. Blad tworzenia tabeli netCertTimeTb"};

/// The tables that every database has.
inline constexpr std::array certificateTables{&crtTb, &dnTb, &caTb, &addIdxTb};
/// Those whose index 0 is the id of a certificate.
inline constexpr std::array sideTables{&dnTb, &caTb, &addIdxTb};
inline constexpr std::array allTables{&crtTb, &dnTb, &caTb, &addIdxTb, &netCertTimeTb};

inline constexpr std::string_view lockFileName = "db.lck";
inline constexpr std::string_view versionFileName = "version.txt";
inline constexpr std::string_view versionText = "7";
inline constexpr std::string_view importsFileName = "imports.dat";
inline constexpr std::string_view crlIndexFileName = "crl_idx.asn";
inline constexpr std::string_view crlIndexTagName = "crl_idx.chk";
inline constexpr std::string_view crlExtension = ".crl";
inline constexpr std::string_view tagExtension = ".chk";
inline constexpr std::string_view backupExtension = ".bak";
inline constexpr std::string_view rollbackLogName = "crl_rollback_log.txt";

}  // namespace crv
