// Contexts of one profile at work in threads of their own: what the thread checkers are run over.
#include <string>
#include <thread>
#include <vector>

#include "api/file_profile.h"

namespace crv::test {
namespace {

using Message = std::vector<unsigned char>;

Message takenOver(unsigned char* data, long len) {
    Message message(data, data + (data ? len : 0));
    crvFreeOctetsAPI(data);
    return message;
}

/// Signs, verifies, encrypts and decrypts with a context of its own; the answers that are not 0.
std::string workAlone(const std::string& list, long thread) {
    std::string faults;
    const auto call = [&](const char* name, int code) {
        if (code != 0) faults += name + (" " + std::to_string(code)) + "; ";
    };
    CRVctx* ctx = nullptr;
    call("init", crvInitExAPI(&ctx, CRVPROFILE_MEDIA_FILE, list.c_str(), "Ala"));
    call("pin", crvStorePINUtf8API(ctx, 1, "Tajne123"));
    call("log-in", crvAuthenticateExAPI(ctx, 0));
    const Message content(1000, static_cast<unsigned char>(thread));
    CrvEncryptParams self{};
    self.size = sizeof self;
    self.flags = CRVENCRYPT_SELF | CRVENCRYPT_UNCHECKED;
    for (long round = 0; round < 4 && faults.empty(); ++round) {
        unsigned char* made = nullptr;
        long len = 0;
        call("sign", crvSignAPI(ctx, content.data(), 1000, nullptr, &made, &len));
        const Message signedOne = takenOver(made, len);
        CrvMessageVerdict* verdict = nullptr;
        call("verify",
             crvVerifyAPI(ctx, signedOne.data(), static_cast<long>(signedOne.size()), nullptr, &made, &len, &verdict));
        call("verdict", crvFreeMessageVerdictAPI(ctx, verdict));
        call("content", takenOver(made, len) == content ? 0 : -1);
        call("encrypt", crvEncryptAPI(ctx, content.data(), 1000, &self, &made, &len));
        const Message sealed = takenOver(made, len);
        call("decrypt", crvDecryptAPI(ctx, sealed.data(), static_cast<long>(sealed.size()), &made, &len, nullptr));
        call("plain", takenOver(made, len) == content ? 0 : -1);
        long value = 0;
        call("option", crvSetOptionAPI(ctx, 17, thread * 1000 + round));
        call("option", crvGetOptionAPI(ctx, 17, &value));
        call("option kept", value == thread * 1000 + round ? 0 : -1);
        call("global option", crvSetGlobalOption(44, round));
    }
    call("deinit", crvDeinitExAPI(ctx));
    return faults;
}

class Threads : public FileProfile {};

TEST_F(Threads, EightContextsShareAProfile) {
    const std::string list = dir_.file("list.conf");
    profile_->saveProfile(ProfileMedia::File, list);
    {
        CRVctx made;
        create(made);
        giveKey(made.keyManager);
    }
    std::vector<std::string> faults(8);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < faults.size(); ++i) {
        threads.emplace_back([&, i] { faults[i] = workAlone(list, static_cast<long>(i)); });
    }
    for (std::thread& thread : threads) thread.join();
    for (const std::string& fault : faults) EXPECT_EQ(fault, "");
}

}  // namespace
}  // namespace crv::test
