// Fetching from the console: what the row says meanwhile, and that Escape ends it at once.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "misc/file_ops.h"
#include "session_screen.h"

namespace crv::test {
namespace {

using Clock = std::chrono::steady_clock;

struct NetScreens : SessionScreen {
    NetScreens() {
        sockaddr_in place{};
        socklen_t size = sizeof place;
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        listener.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&place), size), 0);
        EXPECT_EQ(listen(listener.get(), 4), 0);
        EXPECT_EQ(getsockname(listener.get(), reinterpret_cast<sockaddr*>(&place), &size), 0);
        const std::string port = std::to_string(ntohs(place.sin_port));
        prepareKey(true);
        const std::string ctl = "HOME=$PWD CRV_PROFILE_FILE=$PWD/lista.conf " CRV_BIN_DIR "/crvctl -p PRACA ";
        run(ctl + "cert import ca.crt 2>&1");
        run(ctl + "server add WOLNY --address 127.0.0.1 --port " + port + " --type http --use crl --path / 2>&1");
    }

    /// The connection of a helper.
    FileDescriptor caller() {
        pollfd ready{listener.get(), POLLIN, 0};
        EXPECT_EQ(poll(&ready, 1, 10'000), 1);
        return FileDescriptor(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }
    /// Reads to the end, which comes when the helper is gone.
    static bool ends(int connection, std::chrono::milliseconds within) {
        char octets[4096];
        const auto end = Clock::now() + within;
        while (Clock::now() < end) {
            pollfd ready{connection, POLLIN, 0};
            if (poll(&ready, 1, 10) == 1 && read(connection, octets, sizeof octets) <= 0) return true;
        }
        return false;
    }

    FileDescriptor listener;
};

TEST_F(NetScreens, EscapeEndsAFetchAtOnceAndTheRestIsNotAsked) {
    open("23");
    for (const char* key : {"t", "r"}) {
        screen->waitFor("WOLNY");
        screen->send(key);
        const FileDescriptor connection = caller();
        screen->waitFor("Pobieranie: ");
        screen->waitFor("0 kB, Esc przerywa");
        screen->send(keys::kEscape);
        EXPECT_TRUE(ends(connection.get(), std::chrono::milliseconds(400))) << "the helper is there";
        screen->waitGone("Esc przerywa", std::chrono::milliseconds(400));
        pollfd another{listener.get(), POLLIN, 0};
        EXPECT_EQ(poll(&another, 1, 300), 0) << "something more was asked";
    }
}

}  // namespace
}  // namespace crv::test
