#include "pki/name_constraints.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "asn/x509/signed_certificate.h"
#include "misc/ascii.h"

namespace crv {

namespace {

enum class Match { Inside, Outside, OtherForm, UnknownForm };

Match matchOf(bool inside) {
    return inside ? Match::Inside : Match::Outside;
}

/// Whether the host is the domain or, when `below` says so, one below it.
bool inDomain(std::string_view host, std::string_view domain, bool itself) {
    if (equalIgnoreCase(host, domain)) return itself;
    return host.size() > domain.size() && equalIgnoreCase(host.substr(host.size() - domain.size()), domain) &&
           (domain.empty() || domain.front() == '.' || host[host.size() - domain.size() - 1] == '.');
}

/// A base that begins with a dot means hosts below the domain, another one exactly this host.
bool hostFits(std::string_view host, std::string_view base) {
    return base.starts_with('.') ? inDomain(host, base, false) : equalIgnoreCase(host, base);
}

bool mailFits(std::string_view address, std::string_view base) {
    if (base.find('@') != std::string_view::npos) return equalIgnoreCase(address, base);
    const size_t at = address.rfind('@');
    return at != std::string_view::npos && hostFits(address.substr(at + 1), base);
}

std::string_view hostOf(std::string_view uri) {
    const size_t scheme = uri.find("://");
    if (scheme == std::string_view::npos) return {};
    uri.remove_prefix(scheme + 3);
    uri = uri.substr(0, uri.find_first_of("/?#"));
    if (const size_t at = uri.rfind('@'); at != std::string_view::npos) uri.remove_prefix(at + 1);
    return uri.substr(0, uri.find(':'));
}

/// Whether the host of a URI is a name: one without a host, or with an address in its place, cannot be judged (RFC 5280
/// 4.2.1.10).
bool isHostName(std::string_view host) {
    return host.find_first_not_of("0123456789.") != std::string_view::npos && host.front() != '[';
}

bool nameFits(const DistinguishedName& name, const DistinguishedName& base) {
    const DistinguishedName whole = name.normalize(), front = base.normalize();
    if (front.size() > whole.size()) return false;
    for (size_t i = 0; i < front.size(); ++i) {
        if (front[i].encoded() != whole[i].encoded()) return false;
    }
    return true;
}

Match match(const GeneralName& name, const GeneralName& base) {
    if (name.getChosenIndex() != base.getChosenIndex()) return Match::OtherForm;
    switch (name.getChosenIndex()) {
        case GeneralName::kDirectoryName:
            return matchOf(nameFits(*name.name(), *base.name()));
        case GeneralName::kRfc822Name:
            return matchOf(mailFits(name.value(), base.value()));
        case GeneralName::kDnsName:
            return matchOf(inDomain(name.value(), base.value(), true));
        case GeneralName::kUri: {
            const std::string uri = name.value();
            return isHostName(hostOf(uri)) ? matchOf(hostFits(hostOf(uri), base.value())) : Match::UnknownForm;
        }
        default:
            return Match::UnknownForm;
    }
}

bool anyMatch(const GeneralSubtrees& trees, const GeneralName& name, Match wanted) {
    return std::ranges::any_of(trees, [&](const GeneralSubtree& tree) { return match(name, tree.base) == wanted; });
}

bool allowedBy(const NameConstraints& constraints, const GeneralName& name) {
    if (const auto& excluded = constraints.excludedSubtrees) {
        if (anyMatch(*excluded, name, Match::Inside) || anyMatch(*excluded, name, Match::UnknownForm)) return false;
    }
    const auto& permitted = constraints.permittedSubtrees;
    if (!permitted || anyMatch(*permitted, name, Match::Inside)) return true;
    return !anyMatch(*permitted, name, Match::Outside) && !anyMatch(*permitted, name, Match::UnknownForm);
}

}  // namespace

bool NameConstraintsState::add(const SignedCertificate& authority) {
    const Extension* extension = authority.extensions().find(OID_CE_NAME_CONSTRAINTS);
    if (!extension) return true;
    NameConstraints constraints;
    if (!extension->decode(constraints)) return false;
    constraints_.push_back(std::move(constraints));
    return true;
}

bool NameConstraintsState::allows(const GeneralName& name) const {
    return std::ranges::all_of(constraints_, [&](const NameConstraints& one) { return allowedBy(one, name); });
}

bool NameConstraintsState::allows(const SignedCertificate& certificate) const {
    if (constraints_.empty()) return true;
    GeneralName name;
    if (!certificate.subject().empty()) {
        name.setName(certificate.subject());
        if (!allows(name)) return false;
    }
    const auto alternatives = certificate.extensions().get<GeneralNames>(OID_CE_SUBJECT_ALT_NAME);
    if (!alternatives && certificate.extensions().find(OID_CE_SUBJECT_ALT_NAME)) return false;
    if (alternatives) return std::ranges::all_of(*alternatives, [&](const GeneralName& one) { return allows(one); });
    // Without alternative names the addresses in the subject count.
    return std::ranges::all_of(certificate.emails(), [&](const std::string& email) {
        name.setText(GeneralName::kRfc822Name, email);
        return allows(name);
    });
}

}  // namespace crv
