#include "ops/messages.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <optional>

#include "asn/x509/signed_certificate.h"
#include "config/config_oids.h"
#include "config/warning_codes.h"
#include "corvane/crverrors.h"
#include "crypto/crypto_error.h"
#include "keystore/token_session.h"
#include "messages/profile_messages.h"
#include "misc/ascii.h"
#include "misc/base64_file.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "misc/path.h"
#include "misc/whole_file.h"
#include "ops/certificates.h"
#include "ops/key_transfer.h"
#include "ops/op_error.h"

namespace crv {

namespace {

constexpr size_t kPiece = size_t{256} << 10;
constexpr const char* kPemLabel = "CMS";
constexpr uint32_t kReceivingUses = 1U << KeyUsage::kKeyEncipherment | 1U << KeyUsage::kKeyAgreement;

struct MessageFaultRow {
    int code;
    OpFault fault;
};
constexpr MessageFaultRow kMessageFaults[] = {
    {ECRV_NO_CRV_MSG, OpFault::BadMessage},
    {ECRV_INV_CRV_MSG, OpFault::BadMessage},
    {ECRV_DEKKEY, OpFault::BadMessage},
    {ECRV_SYMALG, OpFault::BadMessage},
    {ECRV_FILE_NOT_SGN_FOR_COUNTERSGN, OpFault::BadMessage},
    {ECRV_UNSUPPORTED_KEY_ALGO, OpFault::WrongKind},
    {ECRV_SIG_WITH_DIG_NOT_SUPPORTED, OpFault::WrongKind},
    {ECRV_DETACHED_FILE_MISSING, OpFault::ContentMissing},
    {ECRV_NOTADDR, OpFault::NotAddressed},
    {ECRV_SKEYS_NOT_PRES, OpFault::NoSigningCertificate},
    {ECRV_EKEYS_NOT_PRES, OpFault::ObjectMissing},
    {ECRV_RECCRT, OpFault::ObjectMissing},
    {ECRV_UNP_KEY_CRT, OpFault::NoSigningCertificate},
    {ECRV_TS_NO_SERVER_DEF, OpFault::ServerMissing},
    {ECRV_TS_REQ_SIGN, OpFault::NetworkFailed},
    {ECRV_TS_NETWORK_FAIL, OpFault::NetworkFailed},
    {ECRV_TS_VERIF, OpFault::NetworkFailed},
    {ECRV_TS_ALL_SERVERS_FAIL, OpFault::NetworkFailed},
    {ECRV_TS_REJECTED, OpFault::NetworkFailed},
    {ECRV_INV_CRT_PROF, OpFault::CertificateRefused},
    {ECRV_CRTAFTER, OpFault::CertificateRefused},
    {ECRV_CRTBEFORE, OpFault::CertificateRefused},
    {ECRV_CRTALG, OpFault::CertificateRefused},
    {ECRV_CRTNOTFOUND, OpFault::CertificateRefused},
    {ECRV_CRTREV, OpFault::CertificateRefused},
    {ECRV_CRTHANG, OpFault::CertificateRefused},
    {ECRV_CRTSIGN, OpFault::CertificateRefused},
    {ECRV_CRTPOL, OpFault::CertificateRefused},
    {ECRV_INV_CRL_FMT, OpFault::CertificateRefused},
    {ECRV_CRL_EXPIRED, OpFault::CertificateRefused},
    {ECRV_CRL_NOT_FOUND, OpFault::CertificateRefused},
    {ECRV_PATH_VER_ERR, OpFault::CertificateRefused},
};

/// The failure of an operation that a code of messages means; nothing for another code.
std::optional<OpFault> faultOfMessage(int code) {
    const auto* row = std::ranges::find(kMessageFaults, code, &MessageFaultRow::code);
    return row == std::end(kMessageFaults) ? std::nullopt : std::optional(row->fault);
}

/// What the library says of messages, as failures of operations.
template <class Work>
auto told(Work work) {
    try {
        return work();
    } catch (const CrvApiException& failure) {
        if (failure.code() == ECRV_ACTION_CANCELLED) stopIfEnding();
        const auto fault = faultOfMessage(failure.code());
        if (!fault) throw;
        throw OpError(*fault, failure.code(), failure.hasText() ? failure.what() : "");
    } catch (const TokenFailure& failure) {
        demandKeys(failure.result());
        throw;
    } catch (const CryptoError& failure) {
        const int code = codeOfCrypto(failure.failure());
        throw OpError(faultOfMessage(code).value_or(OpFault::LibraryFailed), code, failure.what());
    }
}

/// A store that was opened for reading has no generator: it gets one that is never stored.
RandomBridge& randomOf(Session& session) {
    KeyManager& keys = session.keys();
    if (keys.state() == KeyManager::State::Unseeded) {
        SecretArray<48> material;
        if (!systemRandom(material)) demandKeys(kKmNoSeed);
        demandKeys(keys.rbgInit(material));
    }
    return keys.random();
}

/// A stream onto a sink.
class SinkFile final : public GenericFile {
  public:
    explicit SinkFile(const ContentSink& sink) : sink_(sink) {}
    [[nodiscard]] bool write(ByteView octets) override { return sink_(octets); }

  private:
    const ContentSink& sink_;
};

/// Runs work that makes a message, in PEM when asked for.
template <class Work>
bool putMessage(bool pem, const ContentSink& put, Work work) {
    if (!pem) {
        work(put);
        return true;
    }
    SinkFile file(put);
    Base64Writer writer(file, kPemLabel);
    work([&writer](ByteView piece) { return writer.write(piece); });
    return writer.finish();
}

/// What goes to a pipe cannot be taken back when the message turns out to be bad at its end.
ExportTarget wholeOnly(ExportTarget target) {
    target.wholeOrNothing = true;
    return target;
}

SignaturePolicy policyOf(Session& session, const SignFileOrder& order) {
    const auto list = session.configuration().record().getPolicies();
    const auto known = std::ranges::find_if(list, [&](const auto& one) { return one.policyId.text() == order.policy; });
    if (known == list.end()) throw OpError(OpFault::ObjectMissing, order.policy);
    SignaturePolicy policy{known->policyId};
    if (!order.policyDocument.empty()) {
        policy.hash = KcHashAlgo::Sha256;
        policy.digest = hashOf(policy.hash, importFile(order.policyDocument));
    }
    return policy;
}

/// Stores what came for a message. The message stands whatever becomes of that, so a failure is a warning.
void keepFetched(Session& session) {
    CRVctx& context = session.context();
    NetworkManager& network = context.networkManager;
    if (context.dbManager.isDbCreated() == DbState::Missing || processEnding()) return network.clearNetStore();
    try {
        session.storeFetched();
    } catch (const OpError&) {
        network.clearNetStore();
        context.state.addWarning(WARN_NET_STORE_NOT_MOVED);
    }
}

std::vector<MessageSignerKey> signersOf(Session& session, const SignFileOrder& order) {
    std::vector<MessageSignerKey> list;
    for (const std::string& name : order.keys)
        list.push_back(signerOf(session.keys(), session.configuration(), keyNamed(session, name)));
    if (list.empty()) list.push_back(signerOf(session.keys(), session.configuration()));
    for (MessageSignerKey& one : list) {
        if (order.pss && (list.size() == 1 || one.key->scheme() == KeyScheme::Rsa)) one.scheme = KeyScheme::RsaPss;
        if (order.hash != KcHashAlgo::None) one.hash = order.hash;
    }
    return list;
}

void demandGoodPath(Session& session, const CertPtr& certificate) {
    PathOptions options{std::time(nullptr)};
    const PathVerdict path = session.context().certificateManager.buildPath(certificate, options);
    if (path.good()) return;
    throw OpError(OpFault::CertificateRefused, path.code, certificate->subject().text() + ": " + path.reason);
}

}  // namespace

void readPieces(const std::string& path, const std::function<void(ByteView)>& take) {
    const bool standard = path == "-";
    if (!standard && !fileExists(expandHome(path))) throw OpError(OpFault::FileMissing, path);
    const FileDescriptor file(standard ? -1 : fileOps().open(expandHome(path), O_RDONLY | O_CLOEXEC));
    if (!standard && !file.valid()) throw OpError(OpFault::FileUnreadable, path + ": " + std::strerror(errno));
    SecretBytes piece(kPiece);
    for (;;) {
        const ssize_t count = fileOps().read(standard ? STDIN_FILENO : file.get(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR) {
            stopIfEnding();
            continue;
        }
        if (count < 0) throw OpError(OpFault::FileUnreadable, path + ": " + std::strerror(errno));
        if (count == 0) return;
        stopIfEnding();
        take(ByteView(piece).first(static_cast<size_t>(count)));
    }
}

SignResult signFile(Session& session, const SignFileOrder& order) {
    return told([&] {
        SignParams params{signersOf(session, order), order.detached};
        if (order.claimTime) params.time = std::time(nullptr);
        if (!order.policy.empty()) params.policy = policyOf(session, order);
        params.cosign = order.cosign;
        if (!order.detachedMessage.empty()) params.detachedMessage = importFile(order.detachedMessage);
        CRVctx& context = session.context();
        // Nobody is to wait for the network with a change of theirs.
        if (order.level != SignatureLevel::Basic) session.unlock();
        SignResult result;
        const auto make = [&](const ContentSink& put) {
            raiseLevel(params, order.level,
                       {context.certificateManager, context.revocationManager, context.networkManager, order.progress});
            return putMessage(order.pem, put, [&](const ContentSink& sink) {
                MessageSigner signer(params, randomOf(session), sink);
                readPieces(order.input, [&](ByteView piece) { signer.update(piece); });
                result = signer.finish();
            });
        };
        try {
            exportPieces(order.target, session.profile(), make);
        } catch (...) {
            keepFetched(session);
            throw;
        }
        keepFetched(session);
        return result;
    });
}

MessageVerdict verifyFile(Session& session, const VerifyFileOrder& order, VerifyParams params) {
    return told([&] {
        if (!order.detachedMessage.empty()) {
            params.detached = true;
            params.message = importFile(order.detachedMessage);
        }
        params.everyStamp = session.configuration().record().getIntOpt(kOptVerifyAllTimestamps) != 0;
        const CertList& own = session.keys().userCerts();
        params.certificates.insert(params.certificates.end(), own.begin(), own.end());
        CRVctx& context = session.context();
        const auto verify = [&](const ContentSink& sink) {
            params.content = sink;
            MessageVerifier verifier(params, context.certificateManager, context.revocationManager);
            readPieces(order.input, [&](ByteView piece) { verifier.update(piece); });
            return verifier.finish();
        };
        MessageVerdict verdict;
        if (order.out.empty() || params.detached || !order.target.write) return verify({});
        // The file appears with a good verdict only.
        struct NotGood {};
        try {
            exportPieces(wholeOnly(order.target), session.profile(), [&](const ContentSink& put) {
                verdict = verify(put);
                if (!verdict.good()) throw NotGood();
                return true;
            });
        } catch (const NotGood&) {
        }
        return verdict;
    });
}

void encryptFile(Session& session, const std::string& input, const ExportTarget& target, const EncryptParams& params,
                 bool pem, bool unchecked) {
    told([&] {
        if (!unchecked)
            for (const CertPtr& one : params.recipients) demandGoodPath(session, one);
        exportPieces(target, session.profile(), [&](const ContentSink& put) {
            return putMessage(pem, put, [&](const ContentSink& sink) {
                MessageEncryptor encryptor(params, randomOf(session), sink);
                readPieces(input, [&](ByteView piece) { encryptor.update(piece); });
                encryptor.finish();
            });
        });
    });
}

DecryptResult decryptFile(Session& session, const std::string& input, const ExportTarget& target) {
    return told([&] {
        DecryptResult result;
        exportPieces(
            wholeOnly(target), session.profile(),
            [&](const ContentSink& put) {
                MessageDecryptor decryptor(decryptionKeysOf(session.keys(), session.context().certificateManager), put);
                readPieces(input, [&](ByteView piece) { decryptor.update(piece); });
                result = decryptor.finish();
                return true;
            },
            WriteMode::KeepOrSecret);
        return result;
    });
}

namespace {

/// The newest of certificates that can be encrypted for, all of one person.
class RecipientChoice {
  public:
    explicit RecipientChoice(std::string email) : email_(std::move(email)) {}

    [[nodiscard]] bool hasAddress(const SignedCertificate& one) const {
        return std::ranges::any_of(one.emails(), [&](const auto& address) { return equalIgnoreCase(address, email_); });
    }
    void consider(const SignedCertificate& one) {
        const auto usage = one.keyUsage();
        if (!one.isValidAt(now_) || (usage && (usage->namedBits() & kReceivingUses) == 0)) return;
        if (found_ && !(found_->subject() == one.subject())) throw OpError(OpFault::Ambiguous, email_);
        if (!found_ || isNewer(one, *found_)) found_ = makeCert(encodingOf(one));
    }
    [[nodiscard]] const CertPtr& found() const { return found_; }

  private:
    std::string email_;
    int64_t now_ = std::time(nullptr);
    CertPtr found_;
};

}  // namespace

CertPtr recipientByEmail(Session& session, const std::string& email) {
    RecipientChoice choice(email);
    eachCert(session, [&](int64_t, const SignedCertificate& one, ByteView) {
        if (choice.hasAddress(one)) choice.consider(one);
        return true;
    });
    if (choice.found()) return choice.found();
    if (session.configuration().record().getIntOpt(kOptEncCrtFromNet) == 0)
        throw OpError(OpFault::ObjectMissing, email);
    session.unlock();
    CertList came;
    const NetReport report = session.context().networkManager.fetchRecipient(
        email, [](const FetchProgress&) { return !processEnding(); }, came);
    session.storeFetched();
    for (const CertPtr& one : came) choice.consider(*one);
    const std::string why = report.code == 0 ? "" : " (" + report.url + " " + report.cause + ")";
    if (!choice.found()) throw OpError(OpFault::ObjectMissing, email + why);
    return choice.found();
}

}  // namespace crv
