// Operations on the whole database of the current profile.
#pragma once

namespace crv {

/// Imports every certificate of a file, counting along; Escape stops.
void OnCrtImport();

/// Imports a CRL, after a question when it does not verify.
void OnCrlImport();

/// Writes every certificate of the database into one file, which appears when it is complete. Never over a file that
/// the profile lives in.
void OnAllCrtsExport();

/// Removes the expired certificates after a question about the system's time.
void OnDbRebuild();

}  // namespace crv
