#include "crvconfd/screens/key_gen_params.h"

#include <algorithm>

namespace crv {

namespace {

constexpr size_t kMostTokenLengths = 100;
constexpr unsigned kTokenStep = 128;
constexpr unsigned kFallbackLength = 1024;
constexpr size_t kMostSignAlgos = 80;

}  // namespace

std::vector<unsigned> tokenKeyLengths(unsigned minimum, unsigned maximum) {
    std::vector<unsigned> lengths;
    if (maximum == 0 && minimum == 0) return lengths;
    lengths.push_back(minimum == 0 ? kTokenStep : minimum);
    for (uint64_t bits = (lengths.front() / kTokenStep + 1ULL) * kTokenStep;
         bits < maximum && lengths.size() + 1 < kMostTokenLengths; bits += kTokenStep)
        lengths.push_back(static_cast<unsigned>(bits));
    if (maximum > lengths.back()) lengths.push_back(maximum);
    return lengths;
}

const char* tokenRefusal(const TokenAbilities& token, bool forSigning, bool forEncryption) {
    if (!token.generatesRsa)
        return "Karta na której chcesz wygenerować klucze RSA nie obsługuje funkcji generowania kluczy.";
    if (forSigning && !token.signs) {
        return "Karta na której chcesz wygenerować klucze RSA nie obsługuje funkcji podpisu, nie można jej używać jako "
               "nośnika klucza podpisującego.";
    }
    if (forEncryption && !token.decrypts) {
        return "Karta na której chcesz wygenerować klucze RSA nie obsługuje funkcji deszyfrowania, nie można jej "
               "używać jako nośnika klucza deszyfrującego.";
    }
    return nullptr;
}

std::vector<KeyScheme> KeyGenParams::schemes() const {
    if (token) return {KeyScheme::Rsa};
    const std::pair<bool, KeyScheme> offers[] = {{offersRsa, KeyScheme::Rsa},
                                                 {offersDsa, KeyScheme::Dsa},
                                                 {offersEcdsa, KeyScheme::Ecdsa},
                                                 {offersRsaPss, KeyScheme::RsaPss}};
    std::vector<KeyScheme> list;
    for (const auto& [offered, scheme] : offers)
        if (offered) list.push_back(scheme);
    return list;
}

std::vector<unsigned> KeyGenParams::lengths() const {
    if (token) return tokenKeyLengths(tokenMinimum, tokenMaximum);
    if (isRsa(keyScheme)) return {std::begin(kRsaLengths), std::end(kRsaLengths)};
    if (keyScheme == KeyScheme::Dsa) return {std::begin(kDsaLengths), std::end(kDsaLengths)};
    return {};
}

void KeyGenParams::limitTo(unsigned minimum, unsigned maximum) {
    token = true;
    tokenMinimum = minimum;
    tokenMaximum = maximum;
    const auto valid = lengths();
    if (!valid.empty() && std::find(valid.begin(), valid.end(), keyLength) == valid.end()) keyLength = valid.back();
}

void KeyGenParams::chooseScheme(KeyScheme scheme) {
    if (scheme == keyScheme) return;
    keyScheme = scheme;
    signScheme = scheme;
    hash = defaultHash(scheme);
    const auto valid = lengths();
    if (scheme != KeyScheme::Ecdsa && std::find(valid.begin(), valid.end(), keyLength) == valid.end())
        keyLength = kFallbackLength;
}

void KeyGenParams::chooseLength(unsigned bits) {
    keyLength = bits;
    if (!isSignAlgoValidForKeyLength(signScheme, hash, bits)) hash = defaultHash(signScheme);
}

std::vector<SignAlgo> KeyGenParams::signAlgos() const {
    std::vector<SignAlgo> list;
    for (const SignAlgo& row : signAlgoMap()) {
        if (row.scheme != keyScheme || row.hash == KcHashAlgo::None || row.hash == KcHashAlgo::Md5) continue;
        if (isSignAlgoValidForKeyLength(row.scheme, row.hash, keyBits()) && list.size() < kMostSignAlgos)
            list.push_back(row);
    }
    return list;
}

size_t KeyGenParams::currentSignAlgo(const std::vector<SignAlgo>& list) const {
    const auto exact = std::find_if(list.begin(), list.end(),
                                    [&](const SignAlgo& row) { return row.scheme == signScheme && row.hash == hash; });
    const auto same = std::find_if(list.begin(), list.end(), [&](const SignAlgo& row) { return row.hash == hash; });
    return static_cast<size_t>((exact != list.end() ? exact : same) - list.begin());
}

const char* KeyGenParams::curveName() const {
    const EcCurve* found = findCurve(curve);
    return found ? found->name : "<nieznana dziedzina>";
}

bool KeyGenParams::curveHasOid() const {
    const EcCurve* found = findCurve(curve);
    return found && found->hasOid;
}

unsigned KeyGenParams::keyBits() const {
    if (keyScheme != KeyScheme::Ecdsa) return keyLength;
    const EcCurve* found = findCurve(curve);
    return found ? found->bits : 0;
}

}  // namespace crv
