#include "asn/asn_list.h"

#include <algorithm>

#include "misc/memory_file.h"

namespace crv {

long ASNlistF::read(GenericFile* in, long maxLen, unsigned char f) {
    clearElements();
    return ASNobject::read(in, maxLen, f);
}

long ASNlistF::read_contents(GenericFile* in, long len) {
    const auto size = static_cast<size_t>(len);
    const bool kept = isConst() && len > 0 && in->inMemory() && in->window().size() >= size;
    if (kept && in->nesting() + kSoundLevels <= GenericFile::kMaxNesting && soundContents(in->window().first(size))) {
        postponeElements(in->window().first(size));
        in->consume(size);
        return 1;
    }
    return readElements({*in, len});
}

long ASNlistF::read_ndfl_contents(GenericFile* in, long maxLen) {
    return readElements(BodyCursor::indefinite(*in, maxLen));
}

long ASNlistF::readElements(BodyCursor body) {
    clearElements();
    while (!body.atEnd()) {
        const long used = body.read(appendElement(), modeOfParts());
        if (used <= 0) return used;
    }
    return 1;
}

bool ASNlistF::write_contents(GenericFile* out) const {
    for (size_t i = 0; i < elementCount(); ++i)
        if (!elementAt(i).write(out)) return false;
    return true;
}

long ASNlistF::lenOfBody() const {
    long length = 0;
    for (size_t i = 0; i < elementCount(); ++i) length += elementAt(i).getLength();
    return length;
}

bool ASNlistF::writeSorted(GenericFile& out) const {
    if (elementCount() < 2) return ASNlistF::write_contents(&out);
    std::vector<SecretBytes> encodings;
    for (size_t i = 0; i < elementCount(); ++i) {
        MemoryFile element;
        if (!elementAt(i).write(&element)) return false;
        encodings.push_back(toSecret(element.written()));
    }
    std::ranges::sort(encodings);
    return std::ranges::all_of(encodings, [&](const SecretBytes& octets) { return out.write(octets); });
}

}  // namespace crv
