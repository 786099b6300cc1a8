// crvdb: checks, repairs and shows the database directory of a profile.
#include <algorithm>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "db_sql/no_oop.h"
#include "misc/hex.h"
#include "ops/database_files.h"
#include "ops/op_error.h"

namespace {

using crv::DatabaseFiles, crv::DbRecordView, crv::OpMode, crv::TableReport;

enum Status : int { kSound = 0, kDamaged = 1, kUnusable = 2 };

constexpr const char* kUsage =
    "usage: crvdb check DIR         verify every table, reference and CRL tag; says what is wrong\n"
    "       crvdb repair DIR        make the tables anew from their data files, then check\n"
    "       crvdb stat DIR          records, sizes and depths of the tables\n"
    "       crvdb dump DIR TABLE    every record of certific, dnfld, ca, addidx or netCertTime\n"
    "       crvdb --help | --version\n"
    "exit status: 0 sound, 1 damaged, 2 not usable (no database, no access, wrong call)\n";

/// Whoever works with files of a database waits for its lock until he is stopped.
constexpr OpMode kPatient{.dryRun = false, .waitSeconds = 1e9};

void say(const std::string& where, const std::string& what) {
    std::cout << where << ": " << what << "\n";
}

int answer(bool sound) {
    if (sound) std::cout << "sound\n";
    return sound ? kSound : kDamaged;
}

void printFigures(const std::string& table, const TableReport& report) {
    std::cout << table << ": " << report.live << " live, " << report.deleted << " deleted, " << report.insertions
              << " insertions, data " << report.dataOctets << " octets, index " << report.indexOctets << " octets\n";
    for (size_t i = 0; i < report.pages.size(); ++i)
        std::cout << "  index " << i << ": " << report.pages[i] << " pages, " << report.depths[i] << " levels\n";
    if (!report.problems.empty()) std::cout << "  damaged\n";
}

void printRecord(const DbRecordView& record) {
    std::cout << crv::recNoEncode(record.number) << (record.live ? " live" : " deleted") << " length " << record.length
              << " of " << record.capacity << "\n";
    for (size_t i = 0; i < record.keys.size(); ++i) std::cout << "  key " << i << ": " << record.keys[i] << "\n";
    if (!record.body.empty()) std::cout << "  body: " << crv::toHex(record.body) << "\n";
}

int check(const std::vector<std::string>& args) {
    return answer(DatabaseFiles(args[1], kPatient).check(say));
}

int repair(const std::vector<std::string>& args) {
    return answer(crv::repairDatabase(args[1], kPatient, say));
}

int stat(const std::vector<std::string>& args) {
    DatabaseFiles(args[1], kPatient).figures(printFigures);
    return kSound;
}

int dump(const std::vector<std::string>& args) {
    DatabaseFiles(args[1], kPatient).records(args[2], printRecord);
    return kSound;
}

int help(const std::vector<std::string>&) {
    std::cout << kUsage;
    return kSound;
}

int version(const std::vector<std::string>&) {
    std::cout << "crvdb " CRV_VERSION "\n";
    return kSound;
}

struct CommandRow {
    const char* name;
    size_t arguments;
    int (*run)(const std::vector<std::string>& args);
};
constexpr CommandRow kCommands[] = {{"check", 2, check}, {"repair", 2, repair},    {"stat", 2, stat},
                                    {"dump", 3, dump},   {"--help", 1, help},      {"-h", 1, help},
                                    {"-V", 1, version},  {"--version", 1, version}};

int run(const std::vector<std::string>& args) {
    for (const CommandRow& row : kCommands)
        if (!args.empty() && args[0] == row.name && args.size() == row.arguments) return row.run(args);
    std::cerr << kUsage;
    return kUnusable;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const crv::OpError& error) {
        std::string what = crv::faultName(error.fault());
        std::ranges::replace(what, '-', ' ');
        std::cerr << "crvdb: " << what << ": " << error.what() << "\n";
    } catch (const std::exception& e) {
        std::cerr << "crvdb: " << e.what() << "\n";
    }
    return kUnusable;
}
