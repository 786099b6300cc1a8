#include "pkcs11_module/token.h"

#include <ctime>
#include <set>

#include "db/database.h"
#include "db_sql/db_layout.h"
#include "misc/atomic_write.h"
#include "misc/hex.h"

namespace crv::p11 {
namespace {

constexpr size_t kSerialOctets = 8;
/// How long a database that another program changes is waited for.
constexpr std::chrono::seconds kDatabaseWait{2};
/// Seconds since a table's last change behind which the next one has another stamp for certain.
constexpr int64_t kSettled = 2;

}  // namespace

void SeenObjects::each(const std::function<void(const TokenObject&)>& visit) const {
    std::set<Identity> met;
    if (ofFile) {
        for (const TokenObject& object : *ofFile) {
            if (ofDatabase) met.insert(object.identity);
            visit(object);
        }
    }
    if (!ofDatabase) return;
    for (const TokenObject& object : *ofDatabase)
        if (!met.contains(object.identity)) visit(object);
}

Token::Token(ListedProfile profile)
    : profile_(std::move(profile)),
      serialNumber_(toHex(ByteView(hashOf(KcHashAlgo::Sha256, asBytes(profile_.keyFile))).first(kSerialOctets))) {}

bool Token::present() const {
    return listed_ && FileStamp::of(profile_.keyFile).there;
}

bool Token::setListed(bool listed) {
    const bool lost = listed_.exchange(listed) && !listed;
    if (lost) endLogin();
    return lost;
}

void Token::wipeEnded() {
    const std::scoped_lock guard(mutex_);
    dropEnded();
}

void Token::dropEnded() {
    if (open_ && open_->login != logins_) open_.reset();
}

std::array<FileStamp, 2> Token::stampsOfFiles() const {
    return {FileStamp::of(profile_.keyFile),
            profile_.rootsFile.empty() ? FileStamp() : FileStamp::of(profile_.rootsFile)};
}

Token::Open Token::read(uint64_t login, const SecretText& pin, const TokenObjects* before) const {
    // A change behind this look is met at the next one.
    const std::array stamps = stampsOfFiles();
    return {login, pin, stamps, makeObjects(readStore(profile_, pin), profile_.name, before)};
}

void Token::refresh() {
    const std::array now = stampsOfFiles();
    if (!listed_ || !now.front().there) {
        open_.reset();
        throw Refusal{CKR_DEVICE_REMOVED};
    }
    dropEnded();
    if (!open_ || now == open_->stamps) return;
    try {
        Open fresh = read(open_->login, open_->pin, open_->objects.get());
        open_ = std::move(fresh);
    } catch (const Refusal& refusal) {
        if (refusal.rv != CKR_PIN_INCORRECT) throw;
        open_.reset();
    }
}

void Token::login(uint64_t current, const SecretText& pin) {
    const std::scoped_lock guard(mutex_);
    refresh();
    demand(!open_, CKR_USER_ALREADY_LOGGED_IN);
    Open fresh = read(current, pin, nullptr);
    demand(listed_, CKR_DEVICE_REMOVED);
    demand(logins_ == current, CKR_SESSION_HANDLE_INVALID);
    open_ = std::move(fresh);
}

bool Token::logout() {
    const std::scoped_lock guard(mutex_);
    dropEnded();
    const bool was = open_.has_value();
    open_.reset();
    return was;
}

void Token::changePin(const SecretText& pin, const SecretText& newPin) {
    const std::scoped_lock guard(mutex_);
    refresh();
    changePassword(profile_, pin, newPin);
    if (open_) open_->pin = newPin;
}

bool Token::loggedIn() {
    const std::scoped_lock guard(mutex_);
    refresh();
    return open_.has_value();
}

void Token::refreshDatabase() {
    const FileStamp now = FileStamp::of(profile_.dbLock);
    if (profile_.dbLock.empty() || (dbObjects_ && now == dbStamp_)) return;
    const FileStamp table = FileStamp::of(folderOf(profile_.dbLock) + "/" + std::string(crtTb.file) + kDataExtension);
    // Most changes are of lists of revoked certificates.
    if (dbObjects_ && dbTable_ == table) {
        dbStamp_ = now;
        return;
    }
    try {
        DatabaseObjects fresh(dbObjects_.get());
        readDatabase(profile_, [&](ByteView der) { fresh.add(der); });
        dbObjects_ = fresh.take();
        dbTable_.reset();
        if (table.there && std::time(nullptr) - table.written[0] >= kSettled) dbTable_ = table;
    } catch (const Refusal& refusal) {
        // The keys do not need it: what was read of it stays until it changes.
        const bool busy = refusal.rv == kBusy;
        dbTable_.reset();
        const auto moment = std::chrono::steady_clock::now();
        if (!busy) dbBusySince_.reset();
        if (busy && !dbBusySince_) dbBusySince_ = moment;
        if (busy && moment - *dbBusySince_ < kDatabaseWait) throw;
        if (!dbObjects_) dbObjects_ = std::make_shared<const TokenObjects>();
        // One that is busy yet is looked at again by the next call, which does not wait for it.
        dbStamp_ = busy ? FileStamp() : now;
        return;
    }
    dbBusySince_.reset();
    dbStamp_ = now;
}

SeenObjects Token::objects(bool withDatabase) {
    const std::scoped_lock guard(mutex_);
    refresh();
    if (withDatabase) refreshDatabase();
    return {open_ ? open_->objects : nullptr, dbObjects_};
}

}  // namespace crv::p11
