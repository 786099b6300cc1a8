// The extended key usages that a profile accepts.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace crv {

class ASNobjectId;
class UniversalConfMgr;

/// Pairs of a description and an object identifier, in the order of addition; from a list in the order of the keys.
class AcceptedUsages {
  public:
    /// Adds a usage, or gives one that is there another description. Throws CrvApiException (ECRV_INV_REG):
    /// "Niepoprawny identyfikator rozszerzenia", "Brak nazwy rozszerzenia", or the text for a description that another
    /// identifier has.
    void addAcceptedExtKeyUsage(const std::string& oid, const std::string& description);
    /// False when there is none.
    bool delAcceptedExtKeyUsage(std::string_view oid);
    [[nodiscard]] long getAcceptedExtKeyUsagesCount() const { return static_cast<long>(usages_.size()); }
    /// The usage at an index from 0; false outside the list.
    bool getAcceptedExtKeyUsage(long index, std::string& description, ASNobjectId& oid) const;
    /// Description of a well-known usage; null for any other.
    static const char* getExtKeyUsageDescription(std::string_view oid);

  protected:
    /// Reads "extKeyUsages\" of a record. Throws CrvApiException (ECRV_INV_REG) for a key that is no identifier or a
    /// value that is no string.
    void loadUsages(const UniversalConfMgr& store, const std::string& prefix);
    void saveUsages(UniversalConfMgr& store, const std::string& prefix) const;

  private:
    struct Usage {
        std::string description;
        std::string oid;
    };
    std::vector<Usage> usages_;
};

}  // namespace crv
