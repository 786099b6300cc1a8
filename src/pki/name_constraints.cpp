#include "pki/name_constraints.h"

#include <algorithm>
#include <bit>
#include <string>
#include <string_view>
#include <utility>

#include "corvane/crverrors.h"
#include "misc/ascii.h"

namespace crv {

namespace {

using Form = GeneralName::Form;

/// The root's dot at the end changes nothing of what a host name means.
std::string_view withoutFinalDot(std::string_view host) {
    if (host.size() > 1 && host.ends_with('.')) host.remove_suffix(1);
    return host;
}

/// Whether the host is the domain or, when `below` says so, one below it.
bool inDomain(std::string_view host, std::string_view domain, bool itself) {
    host = withoutFinalDot(host);
    domain = withoutFinalDot(domain);
    if (equalIgnoreCase(host, domain)) return itself;
    return host.size() > domain.size() && equalIgnoreCase(host.substr(host.size() - domain.size()), domain) &&
           (domain.empty() || domain.front() == '.' || host[host.size() - domain.size() - 1] == '.');
}

/// A base that begins with a dot means hosts below the domain, another one exactly this host.
bool hostFits(std::string_view host, std::string_view base) {
    return base.starts_with('.') ? inDomain(host, base, false)
                                 : equalIgnoreCase(withoutFinalDot(host), withoutFinalDot(base));
}

/// The mailbox in front of the "@" keeps its letter case (RFC 5280 7.5).
bool mailFits(std::string_view address, std::string_view base) {
    const size_t at = address.rfind('@'), baseAt = base.rfind('@');
    const std::string_view host = address.substr(at + 1);
    if (baseAt == std::string_view::npos) return hostFits(host, base);
    return address.substr(0, at) == base.substr(0, baseAt) && hostFits(host, base.substr(baseAt + 1));
}

/// What stands for many hosts lies in an excluded domain as soon as one of them may.
bool dnsFits(std::string_view host, std::string_view base, bool excluded) {
    if (inDomain(host, base, true)) return true;
    return excluded && host.starts_with("*.") && inDomain(base, host.substr(2), true);
}

bool isAlphanumeric(char c) {
    return (asciiLower(c) >= 'a' && asciiLower(c) <= 'z') || (c >= '0' && c <= '9');
}

bool isScheme(std::string_view text) {
    const auto fits = [](char c) { return isAlphanumeric(c) || c == '+' || c == '-' || c == '.'; };
    return !text.empty() && std::ranges::all_of(text, fits);
}

/// The host of a URI; empty when it has none, or what names it is read in more than one way (RFC 3986 3.2).
std::string_view hostOf(std::string_view uri) {
    const size_t scheme = uri.find(':');
    if (scheme == std::string_view::npos || !isScheme(uri.substr(0, scheme))) return {};
    uri.remove_prefix(scheme);
    if (!uri.starts_with("://")) return {};
    uri = uri.substr(3, uri.find_first_of("/?#", 3) - 3);
    if (std::ranges::any_of(uri, [](char c) { return c <= ' ' || c > '~' || c == '\\'; })) return {};
    if (const size_t at = uri.find('@'); at != std::string_view::npos) uri.remove_prefix(at + 1);
    return uri.starts_with('[') ? uri : uri.substr(0, uri.find(':'));
}

/// Labels of letters, digits, hyphens and underscores; a dot may end them.
bool isHost(std::string_view host) {
    char last = '.';
    for (const char c : withoutFinalDot(host)) {
        if (c == '.' ? last == '.' : !isAlphanumeric(c) && c != '-' && c != '_') return false;
        last = c;
    }
    return last != '.';
}

/// "*" stands for labels as a whole first one only.
bool isDnsName(std::string_view name) {
    return isHost(name.substr(name.starts_with("*.") ? 2 : 0));
}

/// An address in place of the host of a URI cannot be judged (RFC 5280 4.2.1.10).
bool isHostName(std::string_view host) {
    return isHost(host) && host.find_first_not_of("0123456789.") != std::string_view::npos;
}

bool isMailbox(std::string_view address) {
    const size_t at = address.rfind('@');
    return at != std::string_view::npos && at > 0 && isHost(address.substr(at + 1));
}

/// A host, or after a dot those below it.
bool isDomain(std::string_view base) {
    return isHost(base.substr(base.starts_with('.') ? 1 : 0));
}

/// Address and mask of one length, the mask all ones and then all zeros (RFC 4632).
bool isRange(ByteView range) {
    if (range.size() != 8 && range.size() != 32) return false;
    bool ended = false;
    for (const uint8_t octet : range.subspan(range.size() / 2)) {
        const int ones = std::countl_one(octet);
        if ((ended && ones > 0) || std::popcount(octet) != ones) return false;
        ended = ended || ones < 8;
    }
    return true;
}

bool addressFits(ByteView address, ByteView range) {
    if (address.size() * 2 != range.size()) return false;
    for (size_t i = 0; i < address.size(); ++i)
        if (((address[i] ^ range[i]) & range[address.size() + i]) != 0) return false;
    return true;
}

bool isMalformed(Form form, std::string_view text, bool base) {
    switch (form) {
        case GeneralName::kRfc822Name:
            return !isMailbox(text) && !(base && isDomain(text));
        case GeneralName::kDnsName:
            return base ? !text.empty() && !isDomain(text) : !isDnsName(text);
        case GeneralName::kUri:
            return base ? !isDomain(text) : !isHostName(text);
        case GeneralName::kIpAddress:
            return base ? !isRange(asBytes(text)) : text.size() != 4 && text.size() != 16;
        default:
            return false;
    }
}

PathFault notPermitted(const char* text, const char* clause) {
    return {ECRV_PATH_VER_ERR, clause, text};
}

}  // namespace

NameConstraintsState::Name NameConstraintsState::prepared(const GeneralName& name, bool base) {
    Name out{.form = name.getChosenIndex()};
    if (const DistinguishedName* directory = name.name()) {
        out.sets = directory->normalizedSets();
    } else if (name.is(GeneralName::kIpAddress)) {
        out.text = asText(name.chosenAs<ASNoctstr>()->value());
    } else if (name.is(GeneralName::kUri) && !base) {
        out.text = hostOf(name.value());
    } else {
        out.text = name.value();
    }
    out.malformed = isMalformed(static_cast<Form>(out.form), out.text, base);
    return out;
}

NameConstraintsState::Match NameConstraintsState::match(const Name& name, const Name& base, bool excluded) {
    if (name.form != base.form) return Match::OtherForm;
    if (name.malformed || base.malformed) return Match::Unknown;
    const auto answer = [](bool inside) { return inside ? Match::Inside : Match::Outside; };
    switch (name.form) {
        case GeneralName::kDirectoryName:
            return answer(base.sets.size() <= name.sets.size() &&
                          std::equal(base.sets.begin(), base.sets.end(), name.sets.begin()));
        case GeneralName::kRfc822Name:
            return answer(mailFits(name.text, base.text));
        case GeneralName::kDnsName:
            return answer(dnsFits(name.text, base.text, excluded));
        case GeneralName::kUri:
            return answer(hostFits(name.text, base.text));
        case GeneralName::kIpAddress:
            return answer(addressFits(asBytes(name.text), asBytes(base.text)));
        default:
            return Match::Unknown;
    }
}

/// The subject, the alternative names and the e-mail addresses in the subject, which are used like the others.
std::vector<NameConstraintsState::Name> NameConstraintsState::namesOf(const CertificateFacts& facts) {
    std::vector<Name> names;
    GeneralName name;
    const SignedCertificate& certificate = *facts.certificate;
    if (!certificate.subject().empty()) {
        name.setName(certificate.subject());
        names.push_back(prepared(name, false));
    }
    if (facts.alternativeNames)
        for (const GeneralName& one : *facts.alternativeNames) names.push_back(prepared(one, false));
    for (const std::string& email : certificate.emails()) {
        name.setText(GeneralName::kRfc822Name, email);
        names.push_back(prepared(name, false));
    }
    return names;
}

void NameConstraintsState::add(const CertificateFacts& authority) {
    if (!authority.constraints) return;
    Subtrees& trees = subtrees_.emplace_back();
    const auto take = [](const auto& list, std::vector<Name>& out) {
        if (!list) return;
        for (const GeneralSubtree& tree : *list) out.push_back(prepared(tree.base, true));
    };
    take(authority.constraints->permittedSubtrees, trees.permitted);
    take(authority.constraints->excludedSubtrees, trees.excluded);
}

PathFault NameConstraintsState::check(const Name& name, const Subtrees& trees) {
    const size_t cost = trees.permitted.size() + trees.excluded.size();
    if (cost > budget_) return notPermitted("more names and constraints than are looked at", "6.1.3 (b)");
    budget_ -= cost;
    for (const Name& base : trees.excluded) {
        const Match found = match(name, base, true);
        if (found == Match::Inside || found == Match::Unknown) return notPermitted("name excluded", "6.1.3 (c)");
    }
    bool constrained = false;
    for (const Name& base : trees.permitted) {
        const Match found = match(name, base, false);
        if (found == Match::Inside) return {};
        constrained = constrained || found != Match::OtherForm;
    }
    return constrained ? notPermitted("name not permitted", "6.1.3 (b)") : PathFault{};
}

PathFault NameConstraintsState::check(const CertificateFacts& certificate) {
    if (subtrees_.empty()) return {};
    for (const Name& name : namesOf(certificate)) {
        for (const Subtrees& trees : subtrees_)
            if (PathFault fault = check(name, trees)) return fault;
    }
    return {};
}

}  // namespace crv
