// The well-known object identifiers as constants: OID_RSA_ENC and so on. The rows stand in known_oids.inc.
#pragma once

#include "asn/asn_object_id.h"

namespace crv {

#define CRV_OID(constant, dotted, name) inline constexpr KnownOid constant{dotted, name};
#include "asn/known_oids.inc"
#undef CRV_OID

}  // namespace crv
