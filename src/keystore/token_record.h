// The configuration record on a token: private data objects "konfiguracja <n>", of which the highest that passes a
// check counts. Tokens refuse to change an object, so a save makes n + 1 and then removes the older ones.
#pragma once

#include "keystore/key_store_media.h"
#include "keystore/token_session.h"

namespace crv {

/// The content of the best record; empty when the token has none. kKmConfigurationSignature when it has only such as do
/// not pass.
[[nodiscard]] KeyManagerResult readTokenRecord(TokenSession& session, const RecordCheck& check, Bytes& record);

/// Makes a record and reads it back before anything older goes. kKmCardFileSystem when the token is full: the old one
/// stays.
[[nodiscard]] KeyManagerResult writeTokenRecord(TokenSession& session, ByteView record);

}  // namespace crv
