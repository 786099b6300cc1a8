// Which token belongs to a profile, and which of its keys signs and which decrypts.
#pragma once

#include "keystore/key_store_contents.h"
#include "keystore/token_key.h"

namespace crv {

class CrvProfile;

/// What a profile says of the tokens and keys for one role.
struct RoleCriteria {
    std::string label;  ///< of the token, without padding; empty: any
    Bytes keyId;        ///< CKA_ID; empty: any
    TokenUse use;
};

/// What it says of its tokens altogether.
struct TokenCriteria {
    std::vector<std::string> libraries;
    bool osLocking = false;
    std::string reader;          ///< empty: any
    std::string certFilter;      ///< empty: any
    long certField = 0;          ///< of the certificate that the filter looks at
    Bytes signingCertificate;    ///< in DER; empty: any
    bool ignoresRecord = false;  ///< keeps no configuration on the token
    RoleCriteria signing;
    RoleCriteria decryption;
};

[[nodiscard]] TokenCriteria tokenCriteria(const CrvProfile& profile);

/// The modules of a profile, each once, loaded. kKmPkcs11Init when one cannot be.
[[nodiscard]] KeyManagerResult loadModules(ContextServices& context, const TokenCriteria& criteria,
                                           std::vector<PKCS11Device>& modules);

/// The initialised tokens that are there, in readers that fit.
[[nodiscard]] std::vector<FoundToken> enumerateTokens(std::vector<PKCS11Device>& modules,
                                                      const TokenCriteria& criteria);

/// The tokens of the two roles, which may be one; `decryption` is then empty. kKmCardNotFound; kKmManyCards,
/// kKmManySigningCards, kKmManyDecryptionCards, and the log lists them.
struct MatchedTokens {
    std::optional<FoundToken> signing;
    std::optional<FoundToken> decryption;
};
[[nodiscard]] KeyManagerResult matchTokens(std::vector<FoundToken> tokens, const TokenCriteria& criteria,
                                           MatchedTokens& matched);

/// The keys and certificates of a token, in the session's present state: without a log-in what is public.
struct TokenObjects {
    std::vector<TokenKeyFacts> keys;
    CertList certificates;
};
[[nodiscard]] P11Result readTokenObjects(PKCS11Device& device, bool loggedIn, TokenObjects& objects);

/// The key for a role among those of its token: by its identifier, by the profile's certificate, by the keyUsage of its
/// certificate, as the only one that can (and, of several, does nothing else). An index; nothing when there is none.
/// kKmTokenKeyNotFound when the profile names one that is not there, kKmRoleTaken when several would do (the log lists
/// them).
[[nodiscard]] KeyManagerResult matchKey(const TokenObjects& objects, KeyRole role, const TokenCriteria& criteria,
                                        std::optional<size_t>& index);

}  // namespace crv
