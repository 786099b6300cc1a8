// The exclusive lock that the console holds on the security file while it is opened or saved.
#pragma once

#include "misc/file_semaphore.h"

namespace crv {

class SecurityFileLock {
  public:
    /// For the current profile; a card, a provider or memory has no file to lock, and the lock then always succeeds.
    SecurityFileLock();

    /// Waits for the lock. A failure shows "Błąd blokady pliku bezpieczeństwa !!!" and answers false.
    [[nodiscard]] bool take();
    /// Gives the lock back before the end of the scope, so that no message is shown under it. A failure shows the same
    /// text.
    void release();

  private:
    FileSemaphore semaphore_;
};

}  // namespace crv
