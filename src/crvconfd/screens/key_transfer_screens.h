// Keys that go to other programs, and keys that come from them.
#pragma once

#include <cstddef>

namespace crv {

/// Writes the key with that number and its chain under a password of its own, after a question.
void exportKeyToFile(size_t index);

/// Takes the keys of a PKCS#12 or PEM file with their certificates, after a question.
void importKeysFromFile();

}  // namespace crv
