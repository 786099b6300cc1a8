// Piecewise reading and writing, for contents too large to be held in memory.
//
// Reading: hand the encoding over piece by piece with `doReadData`. Contents of an OCTET STRING go straight to the
// output stream, whatever form they come in; any other type is collected and read when it is complete. `streamDone`
// then holds. Writing: `beginStream` writes the header, `doWriteData` the pieces. `cleanStreamCtx` gives up in the
// middle.
#pragma once

#include <vector>

#include "asn/asn_object.h"
#include "misc/memory_file.h"

namespace crv {

/// State of an object between two pieces; collects the encoding until it is complete.
class ASNStreamCtx {
  public:
    explicit ASNStreamCtx(ASNobject& object) : object_(object) {}
    ASNStreamCtx(const ASNStreamCtx&) = delete;
    ASNStreamCtx& operator=(const ASNStreamCtx&) = delete;
    virtual ~ASNStreamCtx() = default;

    /// Takes what `in` has to offer, at most to the end of the element; results as for ASNobject::doReadData.
    [[nodiscard]] virtual long take(GenericFile& in, bool last, GenericFile& out);
    [[nodiscard]] bool done() const { return done_; }

    /// Contents still to be written, -1 when nobody knows.
    long leftToWrite = 0;
    bool writing = false;

  protected:
    [[nodiscard]] bool isOwnIdentifier(int identifier) const { return object_.takesIdentifier(identifier); }
    [[nodiscard]] long readContents(GenericFile& in, long count, GenericFile& out) {
        return object_.doReadContents(&in, count, &out);
    }
    [[nodiscard]] bool isExplicit() const { return object_.isExplicit(); }
    void setDone() { done_ = true; }

    ASNobject& object_;

  private:
    [[nodiscard]] long missing();

    MemoryFile collected_;
    size_t at_ = 0;       // where the next header stands, or the end of the element
    int open_ = 0;        // levels of indefinite length that are not closed yet
    bool ended_ = false;  // the end of the element is known
    bool done_ = false;
};

/// Passes the contents of an OCTET STRING on as they arrive. Remembers only where it stands: the unfinished header and
/// the ends of the open constructed levels.
class ASNOctStrStreamCtx final : public ASNStreamCtx {
  public:
    using ASNStreamCtx::ASNStreamCtx;
    [[nodiscard]] long take(GenericFile& in, bool last, GenericFile& out) override;

  private:
    [[nodiscard]] long takeHeaderOctet(GenericFile& in);
    [[nodiscard]] bool open(int identifier, long length);
    [[nodiscard]] bool expects(int identifier) const;
    [[nodiscard]] bool closeLevels();

    std::vector<long> levels_;  // where each open level ends; -1 for the indefinite form
    Bytes header_;
    long taken_ = 0;
    long leafLeft_ = 0;
    bool ownSeen_ = false;
};

}  // namespace crv
