#include "pkcs11_module/module.h"

#include <algorithm>
#include <atomic>

namespace crv::p11 {

namespace {

/// Of the process: a handle kept from before C_Finalize must not name another session.
std::atomic<CK_SESSION_HANDLE> lastSession{0};

}  // namespace

Module::Table::~Table() {
    guard_.unlock();
    for (const auto& token : lost_) token->wipeEnded();
}

Module::Table::Table(Module& module) : guard_(module.mutex_) {
    module.refreshSlots(lost_);
}

void Module::refreshSlots(std::vector<std::shared_ptr<Token>>& lost) {
    if (read_ && !lists_.changed()) return;
    read_ = false;
    const std::vector<ListedProfile> now = lists_.read();
    lost.reserve(slots_.size());
    std::map<std::string_view, const ListedProfile*> byName;
    for (const ListedProfile& profile : now) byName.emplace(profile.name, &profile);
    for (const auto& token : slots_) {
        const auto found = byName.find(token->profile().name);
        const bool same = found != byName.end() && *found->second == token->profile();
        if (token->setListed(same)) lost.push_back(token);
        if (same) byName.erase(found);
    }
    for (const ListedProfile& profile : now)
        if (byName.contains(profile.name)) slots_.push_back(std::make_shared<Token>(profile));
    read_ = true;
}

std::vector<CK_SLOT_ID> Module::slots(bool present) {
    const Table table(*this);
    std::vector<CK_SLOT_ID> ids;
    for (size_t i = 0; i < slots_.size(); ++i)
        if (!present || slots_[i]->present()) ids.push_back(i);
    return ids;
}

std::shared_ptr<Token> Module::token(CK_SLOT_ID slot) {
    const Table table(*this);
    demand(slot < slots_.size(), CKR_SLOT_ID_INVALID);
    return slots_[slot];
}

std::shared_ptr<Token> Module::presentToken(CK_SLOT_ID slot) {
    auto found = token(slot);
    demand(found->present(), CKR_TOKEN_NOT_PRESENT);
    return found;
}

CK_SESSION_HANDLE Module::open(CK_SLOT_ID slot, bool readWrite) {
    auto session = std::make_shared<Session>();
    session->slot = slot;
    session->token = presentToken(slot);
    session->readWrite = readWrite;
    const std::scoped_lock guard(mutex_);
    demand(sessions_.size() < kMostSessions, CKR_SESSION_COUNT);
    const CK_SESSION_HANDLE handle = ++lastSession;
    sessions_.emplace(handle, std::move(session));
    return handle;
}

SessionPtr Module::session(CK_SESSION_HANDLE handle) {
    const Table table(*this);
    const auto found = sessions_.find(handle);
    demand(found != sessions_.end(), CKR_SESSION_HANDLE_INVALID);
    return found->second;
}

void Module::close(CK_SESSION_HANDLE handle) {
    SessionPtr closed;
    bool last = false;
    {
        const std::scoped_lock guard(mutex_);
        const auto found = sessions_.find(handle);
        demand(found != sessions_.end(), CKR_SESSION_HANDLE_INVALID);
        closed = std::move(found->second);
        sessions_.erase(found);
        last = std::ranges::none_of(sessions_, [&](const auto& one) { return one.second->token == closed->token; });
        // Under the lock of the table: nobody opens a session in between and loses its log-in.
        if (last) closed->token->endLogin();
    }
    if (!last) return;
    closed->token->wipeEnded();
    const std::scoped_lock wait(closed->mutex);
}

void Module::closeAll(CK_SLOT_ID slot) {
    const auto token = this->token(slot);
    const std::vector<SessionPtr> closed = sessionsOf(*token);
    {
        const std::scoped_lock guard(mutex_);
        std::erase_if(sessions_, [&](const auto& one) { return one.second->token == token; });
        token->endLogin();
    }
    token->wipeEnded();
    for (const SessionPtr& session : closed) const std::scoped_lock wait(session->mutex);
}

void Module::login(CK_SESSION_HANDLE handle, const SecretText& pin) {
    const std::shared_ptr<Token> token = session(handle)->token;
    const uint64_t current = token->loginNumber();
    // Still there behind the number: if its end takes the log-in along, the number is another one.
    static_cast<void>(session(handle));
    token->login(current, pin);
}

void Module::logout(const std::shared_ptr<Token>& token) {
    demand(token->logout(), CKR_USER_NOT_LOGGED_IN);
    for (const SessionPtr& session : sessionsOf(*token)) {
        const std::scoped_lock wait(session->mutex);
        session->signing.reset();
        session->decrypting.reset();
        session->search.reset();
    }
}

Module::Counts Module::counts(CK_SLOT_ID slot) {
    const std::scoped_lock guard(mutex_);
    Counts counts;
    for (const auto& [handle, session] : sessions_) {
        if (session->slot != slot) continue;
        ++counts.all;
        if (session->readWrite) ++counts.readWrite;
    }
    return counts;
}

std::vector<SessionPtr> Module::sessionsOf(const Token& token) {
    const std::scoped_lock guard(mutex_);
    std::vector<SessionPtr> found;
    for (const auto& [handle, session] : sessions_)
        if (session->token.get() == &token) found.push_back(session);
    return found;
}

}  // namespace crv::p11
