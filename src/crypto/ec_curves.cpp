#include "crypto/ec_curves.h"

#include <openssl/objects.h>

#include <algorithm>
#include <cstring>

#include "crypto/libcrypto.h"

namespace crv {

namespace {

constexpr unsigned kMinBits = 160;
constexpr size_t kMaxEncoding = 4096;  // the longest explicit domain takes well under 1 KiB

std::vector<EcCurve> makeTable() {
    std::vector<EC_builtin_curve> builtin(EC_get_builtin_curves(nullptr, 0));
    EC_get_builtin_curves(builtin.data(), builtin.size());
    std::vector<EcCurve> table;
    for (const EC_builtin_curve& known : builtin) {
        // SM2 has a signature scheme of its own; the Oakley curves are for key agreement, as libcrypto's own note says.
        if (known.nid == NID_sm2 || std::strstr(known.comment, "Not suitable for ECDSA")) continue;
        const auto id = static_cast<StdECId>(known.nid);
        const ossl::Group group(EC_GROUP_new_by_curve_name_ex(ossl::context(), nullptr, known.nid));
        if (!group) ossl::throwIfNoMemory();
        const unsigned bits = group ? static_cast<unsigned>(EC_GROUP_get_degree(group.get())) : 0;
        if (bits < kMinBits) continue;
        table.push_back({id, OBJ_nid2sn(known.nid), bits, OBJ_length(OBJ_nid2obj(known.nid)) != 0});
    }
    std::sort(table.begin(), table.end(), [](const EcCurve& a, const EcCurve& b) {
        return a.bits != b.bits ? a.bits < b.bits : std::strcmp(a.name, b.name) < 0;
    });
    return table;
}

}  // namespace

std::span<const EcCurve> ecCurves() {
    static const std::vector<EcCurve> table = makeTable();
    return table;
}

const EcCurve* findCurve(StdECId id) {
    const auto curves = ecCurves();
    const auto found = std::find_if(curves.begin(), curves.end(), [&](const EcCurve& c) { return c.id == id; });
    return found == curves.end() ? nullptr : &*found;
}

Bytes encodeEcDomain(StdECId id, bool explicitDomain) {
    const EcCurve* curve = findCurve(id);
    if (!curve) throw CryptoError(CryptoFailure::Unsupported, "unknown elliptic curve");
    const ossl::Group group = ossl::groupOf(static_cast<int>(id));
    EC_GROUP_set_asn1_flag(group.get(),
                           explicitDomain || !curve->hasOid ? OPENSSL_EC_EXPLICIT_CURVE : OPENSSL_EC_NAMED_CURVE);
    const int length = i2d_ECPKParameters(group.get(), nullptr);
    if (length <= 0) ossl::fail(CryptoFailure::Internal, "the curve does not encode");
    Bytes der(static_cast<size_t>(length));
    uint8_t* out = der.data();
    i2d_ECPKParameters(group.get(), &out);
    return der;
}

EcDomain decodeEcDomain(ByteView parameters) {
    if (parameters.empty() || parameters.size() > kMaxEncoding) {
        throw CryptoError(CryptoFailure::BadKey, "elliptic curve parameters of impossible length");
    }
    const uint8_t* in = parameters.data();
    const ossl::Group group(d2i_ECPKParameters(nullptr, &in, static_cast<long>(parameters.size())));
    if (!group || in != parameters.data() + parameters.size()) {
        ossl::fail(CryptoFailure::BadKey, "malformed elliptic curve parameters");
    }
    const auto id = static_cast<StdECId>(EC_GROUP_get_curve_name(group.get()));
    if (!findCurve(id)) throw CryptoError(CryptoFailure::Unsupported, "unknown elliptic curve");
    return {id, parameters.front() != 0x06};  // an OBJECT IDENTIFIER names the curve
}

}  // namespace crv
