#include "asn/asn_any.h"

#include <algorithm>

#include "misc/memory_file.h"

namespace crv {

ASNany::ASNany(const ASNobject& value) : ASNany() {
    build(value);
}

/// Before the contents, because a kept encoding is taken over only between equal tags.
void ASNany::takeTag(const ASNany& other) {
    if (hasFlag(kInner)) assertChangeable();
    memory_.clear();
    setOwnTag(other.tag_);
    tag_ = other.tag_;
}

ASNany& ASNany::operator=(const ASNany& other) {
    if (this == &other) return *this;
    takeTag(other);
    ASNprimitive::operator=(other);
    return *this;
}

// NOLINTNEXTLINE(performance-noexcept-move-constructor)
ASNany& ASNany::operator=(ASNany&& other) {
    if (this == &other) return *this;
    takeTag(other);
    ASNprimitive::operator=(std::move(other));
    return *this;
}

long ASNany::read(GenericFile* in, long maxLen, unsigned char f) {
    memory_.clear();
    if (!isExplicit()) {
        setOwnTag(constructedWith_);
        tag_ = constructedWith_;
    } else {
        setOwnTag(ASN_TAG_ANY);
    }
    return ASNprimitive::read(in, maxLen, f);
}

long ASNany::read_ndfl_contents(GenericFile* in, long maxLen) {
    BodyCursor body = BodyCursor::indefinite(*in, maxLen);
    MemoryFile copy;
    const uint8_t* start = in->window().data();
    const long first = in->position();
    while (!body.atEnd()) {
        const long used =
            walkElement(*in, maxLen > 0 ? maxLen - (in->position() - first) : 0, isConst() ? nullptr : &copy);
        if (used <= 0) return used;
    }
    if (isConst()) {
        contents_.refer({start, static_cast<size_t>(in->position() - first)});
    } else {
        contents_.assign(copy.written());
    }
    return 1;
}

void ASNany::build(unsigned char tag, ByteView body) {
    setContents(body);
    memory_.clear();
    setOwnTag(tag);
    tag_ = tag;
}

void ASNany::build(unsigned char tag, const char* data, long len) {
    build(tag, asBytes({data, static_cast<size_t>(len)}));
}

bool ASNany::build(ByteView encoding) {
    assertChangeable();
    return readExactly(Bytes(encoding.begin(), encoding.end()));
}

bool ASNany::build(const char* encoding, long len) {
    return build(asBytes({encoding, static_cast<size_t>(len)}));
}

void ASNany::build(const ASNobject& value) {
    assertChangeable();
    static_cast<void>(copyObject(value));
}

ByteView ASNany::getMemory() const {
    ByteView kept = keptEncoding();
    if (!kept.empty() && isExplicit()) {
        MemoryFile outer(kept.subspan(1));
        long length = 0;
        kept = kept.subspan(1 + static_cast<size_t>(read_length(outer, length)));
        if (length < 0) kept = kept.first(kept.size() - 2);
    }
    if (!kept.empty()) return kept;
    MemoryFile file;
    if (memory_.empty() && isSet() && writeHeader(file, lenOfBody()) && write_contents(&file))
        memory_.assign(file.written());
    return memory_.view();
}

bool operator==(const ASNany& a, const ASNany& b) {
    return a.tag_ == b.tag_ && std::ranges::equal(a.contents(), b.contents());
}

}  // namespace crv
