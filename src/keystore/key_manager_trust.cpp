// The key manager's trust points.
#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "corvane/crvprofile.h"
#include "keystore/key_manager.h"
#include "keystore/key_pairing.h"
#include "keystore/key_store_media.h"
#include "misc/exceptions.h"
#include "misc/path.h"

namespace crv {

void KeyManager::copyUserUnqualifiedTrustedCA() {
    copyUserTrust(configuration().record(), contents_.trustedCerts);
}

std::vector<TrustPoint> KeyManager::trustedPoints() const {
    return trust_.list(configuration().record(), contents_.trustedCerts);
}

KeyManagerResult KeyManager::addTrustedCA(const CertPtr& certificate) {
    demand({State::Unseeded, State::Open});
    const KeyManagerResult checked = checkTrustPoint(*certificate);
    if (checked != kKmOk && checked != kKmTrustPointRefused) return checked;
    if (trust_.holds(configuration().record(), contents_.trustedCerts, *certificate)) return kKmTrustPointExists;
    if (checked != kKmOk) return checked;
    Undo undo(*this);
    CRVCfgFile& record = configuration().editRecord();
    CRVCfgFile::Certificates list = record.getTrustedCAs();
    list.push_back(toBytes(encodingOf(*certificate)));
    record.setTrustedCAs(list);
    contents_.trustedCerts.push_back(certificate);
    removeFrom(contents_.userCerts, *certificate);
    markOrdinary(contents_.certAttributes, *certificate, false);
    return undo.keep(kKmOk);
}

CertList KeyManager::trustCandidates() const {
    CertList candidates;
    std::ranges::copy_if(contents_.userCerts, std::back_inserter(candidates),
                         [&](const CertPtr& one) { return isOrdinary(contents_.certAttributes, *one); });
    return candidates;
}

KeyManagerResult KeyManager::delTrustedCA(const CertPtr& certificate, int flag) {
    demand({State::Unseeded, State::Open});
    VTEST(flag == static_cast<int>(TrustPointFlag::User), kKeyManagerPlace);
    CRVCfgFile::Certificates list = configuration().record().getTrustedCAs();
    if (std::erase(list, toBytes(encodingOf(*certificate))) == 0) {
        const bool there = trust_.holds(configuration().record(), contents_.trustedCerts, *certificate);
        return there ? kKmNotOnThisMedium : kKmOk;
    }
    Undo undo(*this);
    configuration().editRecord().setTrustedCAs(list);
    removeFrom(contents_.trustedCerts, *certificate);
    return undo.keep(kKmOk);
}

KeyManagerResult KeyManager::readAdditionalTrustedCA() {
    demand({State::Unseeded, State::Open});
    trust_.clearAdditional();
    const CrvProfile& profile = *configuration().profile();
    std::string path;
    profile.getAttr(CRVPROFILE_ATTR_ROOTS_FILE, path);
    if (path.empty()) return kKmOk;
    Bytes octets;
    bool missing = false;
    const KeyManagerResult read = readSecurityOctets(expandHome(path), octets, missing);
    if (missing) return kKmOk;
    if (read != kKmOk) return kKmRootsFormat;

    long emptyPassword = 0;
    profile.getAttr(CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, emptyPassword);
    SecretText password;
    if (emptyPassword == 0) {
        const PinResult answer = context_->getPIN(PinSlot::Roots, password);
        if (answer == kPinWrong) return kKmWrongRootsPassword;
        if (answer != kPinOk) return kKmNoRootsPassword;
    }
    return trust_.readAdditional(octets, password, progress_);
}

}  // namespace crv
