// The process-wide settings under which trusted lists are downloaded.
#pragma once

#include <atomic>
#include <mutex>

#include "profiles/proxy_settings.h"

namespace crv {

/// One for the process, made on first use; safe for several threads.
class TrustedListManager {
  public:
    static TrustedListManager& instance();

    /// Whether lists are downloaded with an external downloader.
    void setDownloadWithWget(bool use) { downloadWithWget_ = use; }
    [[nodiscard]] bool downloadWithWget() const { return downloadWithWget_; }

    /// The proxy of the profile that was bound last.
    void setProxy(const Proxy& proxy);
    [[nodiscard]] Proxy proxy() const;

  private:
    std::atomic<bool> downloadWithWget_ = false;
    mutable std::mutex mutex_;
    Proxy proxy_;
};

}  // namespace crv
