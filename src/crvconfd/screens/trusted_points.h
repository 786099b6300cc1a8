// The screen of the trust points: one a screen, with adding, deleting, saving and the certificate view.
#pragma once

#include <vector>

#include "crvconfd/screens/server_screens.h"
#include "keystore/key_manager.h"

namespace crv {

using TrustPointList = std::vector<TrustPoint>;

/// The screen's loop.
void OnTrustedPoints();

/// The trust points of the current profile, read afresh.
[[nodiscard]] TrustPointList readTrustedPoints();
/// Draws one trust point, or that there is none.
void displayTP(const TrustPointList& list, size_t index);
/// Draws the footer; index counts from 0.
void displayMenu(size_t index, size_t count);
/// Draws what is known of the authority's last CRLs.
void displayCRLInfo(int row, int col, const SignedCertificate& authority);

/// Each answers whether the list changed.
bool OnTrustedPointAdd();
bool OnTrustedPointDel(const TrustPointList& list, size_t index);
void OnTrustedPointSave(const TrustPointList& list, size_t index);
void OnTrustedPointShow(const TrustPointList& list, size_t index);

/// The trust points as authorities that servers may belong to.
[[nodiscard]] std::vector<CaChoice> trustPointChoices();

}  // namespace crv
