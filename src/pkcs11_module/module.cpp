#include "pkcs11_module/module.h"

#include <algorithm>

namespace crv::p11 {

void Module::refreshSlots() {
    if (read_ && !lists_.changed()) return;
    const std::vector<ListedProfile> now = lists_.read();
    read_ = true;
    std::map<std::string_view, const ListedProfile*> byName;
    for (const ListedProfile& profile : now) byName.emplace(profile.name, &profile);
    for (const auto& token : slots_) {
        const auto found = byName.find(token->profile().name);
        const bool same = found != byName.end() && *found->second == token->profile();
        token->setListed(same);
        if (same) byName.erase(found);
    }
    for (const ListedProfile& profile : now)
        if (byName.contains(profile.name)) slots_.push_back(std::make_shared<Token>(profile));
}

std::vector<CK_SLOT_ID> Module::slots(bool present) {
    const std::scoped_lock guard(mutex_);
    refreshSlots();
    std::vector<CK_SLOT_ID> ids;
    for (size_t i = 0; i < slots_.size(); ++i)
        if (!present || slots_[i]->present()) ids.push_back(i);
    return ids;
}

std::shared_ptr<Token> Module::token(CK_SLOT_ID slot) {
    const std::scoped_lock guard(mutex_);
    refreshSlots();
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
    sessions_.emplace(++lastSession_, std::move(session));
    return lastSession_;
}

SessionPtr Module::session(CK_SESSION_HANDLE handle) {
    const std::scoped_lock guard(mutex_);
    refreshSlots();
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
        if (last) closed->token->logout();
    }
    if (last) const std::scoped_lock wait(closed->mutex);
}

void Module::closeAll(CK_SLOT_ID slot) {
    const auto token = this->token(slot);
    const std::vector<SessionPtr> closed = sessionsOf(*token);
    {
        const std::scoped_lock guard(mutex_);
        std::erase_if(sessions_, [&](const auto& one) { return one.second->token == token; });
        token->logout();
    }
    for (const SessionPtr& session : closed) const std::scoped_lock wait(session->mutex);
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
