// crvdb: checks, repairs and shows the database directory of a profile.
#include <iostream>
#include <string>
#include <vector>

#include "directory.h"

namespace {

constexpr const char* kUsage =
    "usage: crvdb check DIR         verify every table, reference and CRL tag; says what is wrong\n"
    "       crvdb repair DIR        make the tables anew from their data files, then check\n"
    "       crvdb stat DIR          records, sizes and depths of the tables\n"
    "       crvdb dump DIR TABLE    every record of certific, dnfld, ca, addidx or netCertTime\n"
    "exit status: 0 sound, 1 damaged, 2 not usable (no database, no access, wrong call)\n";

int check(const std::string& path) {
    crvdb::Findings findings(std::cout);
    crvdb::Directory(path).check(findings);
    if (findings.status() == crvdb::kSound) std::cout << "sound\n";
    return findings.status();
}

int run(const std::vector<std::string>& args) {
    const std::string command = args.empty() ? "" : args[0];
    if (command == "check" && args.size() == 2) return check(args[1]);
    if (command == "repair" && args.size() == 2) {
        const bool repaired = crvdb::repair(args[1], std::cout);
        const int after = check(args[1]);
        return repaired ? after : crvdb::kDamaged;
    }
    if (command == "stat" && args.size() == 2) return crvdb::Directory(args[1]).stat(std::cout), crvdb::kSound;
    if (command == "dump" && args.size() == 3) return crvdb::Directory(args[1]).dump(args[2], std::cout), crvdb::kSound;
    const bool help = command == "--help" || command == "-h";
    (help ? std::cout : std::cerr) << kUsage;
    return help ? crvdb::kSound : crvdb::kUnusable;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& e) {
        std::cerr << "crvdb: " << e.what() << "\n";
        return crvdb::kUnusable;
    }
}
