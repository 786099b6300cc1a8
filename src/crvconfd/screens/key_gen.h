// The key generation screen.
#pragma once

#include "crvconfd/screens/key_gen_params.h"
#include "keystore/key_store_contents.h"

namespace crv {

/// Lets the user choose the parameters of a key for the use, generates and saves it, and writes the request for its
/// certificate.
void OnKeyGen(KeyType usage);

/// The same for a key that takes the place of the one with the use when its certificate is installed; where one waits
/// already, its request is written again. Only in a security file.
void OnKeyReplace(KeyType usage);

/// Writes the request of the key with the use once more.
void saveRequestAgain(KeyType usage);

/// At the end of a session: a generated key that could not be saved is offered once more, or it is lost.
void offerUnsavedKey();

/// Draws the screen. While a list is open the shortcuts are not marked and the footer tells the keys of the list.
void ShowKeyGenMenu(const KeyGenParams& params, bool listOpen);

enum class KeyGenCommand { Stay, Generate, Leave };
/// Obeys a key; keys that are no command change nothing.
[[nodiscard]] KeyGenCommand ProcessKeyGenCommand(int key, KeyGenParams& params);

void OnSelectKeyAlgo(KeyGenParams& params);
/// The length, or the curve for ECDSA.
void OnSelectKeyLength(KeyGenParams& params);
void selectSignScheme(KeyGenParams& params);

}  // namespace crv
