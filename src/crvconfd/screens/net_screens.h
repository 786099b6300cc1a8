// What the screens ask of the network: with progress on the message row, and Escape to stop.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "net/fetch_scheduler.h"

namespace crv {

class SignedCertificate;
struct SrvParams;

/// "Pobieranie: NAME 123 kB, Esc przerywa" on the message row; false once Escape was pressed.
[[nodiscard]] bool showFetch(const FetchProgress& progress);

/// Asks a server for what it is there for and shows what came of it.
void testServer(const SrvParams& server);
/// Fetches the CRLs of every authority that has a source and shows what came of it.
void fetchAllCrls();
/// Asks for a name or an e-mail address and fetches the certificates from the servers into the database. True when
/// some came.
bool fetchCertificates();
/// The path and the status of a certificate after the network was asked.
[[nodiscard]] std::vector<std::string> statusNow(const SignedCertificate& certificate);
/// Compares the local clock with a time stamp where there is a server for them; a difference of more than five minutes
/// is told on a row.
void compareClock(int row);

/// As long as the object lives: fetches CRLs that are due while `idle` is called, and stores them when nobody else
/// holds the database. Never waits for the network or a lock.
class CrlKeeper {
  public:
    CrlKeeper();
    ~CrlKeeper();
    CrlKeeper(const CrlKeeper&) = delete;
    CrlKeeper& operator=(const CrlKeeper&) = delete;
    /// Called by the menus while they wait for a key; does nothing without an object.
    static void idle();

  private:
    struct Work;
    void step();
    [[nodiscard]] std::chrono::seconds advance();
    std::unique_ptr<Work> work_;
};

}  // namespace crv
