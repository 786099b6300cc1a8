#include "asn/asn_choice.h"

#include "misc/exceptions.h"

namespace crv {

namespace {
constexpr const char* kChoicePlace = "src/asn/asn_choice";
}

/// The table is reached through the other object: this one is still under construction.
ASNchoice::ASNchoice(const ASNchoice& other) : ASNobject(other), index_(other.index_) {
    if (other.chosen_) chosen_ = other.alternatives()[static_cast<size_t>(index_)].copy(*other.chosen_);
}

ASNchoice& ASNchoice::operator=(const ASNchoice& other) {
    if (this == &other) return *this;
    ASNobject::operator=(other);
    index_ = other.index_;
    chosen_ = other.chosen_ ? alternatives()[static_cast<size_t>(index_)].copy(*other.chosen_) : nullptr;
    return *this;
}

int ASNchoice::find(int identifier) const {
    const AlternativeTable table = alternatives();
    for (size_t i = 0; i < table.size(); ++i) {
        if (table[i].tag == ASN_TAG_ANY || ((table[i].tag ^ identifier) & ~ASN_CONSTRUCTED_BIT) == 0)
            return static_cast<int>(i);
    }
    return -1;
}

bool ASNchoice::acceptsTag(int identifier) const {
    if (isExplicit()) return ASNobject::acceptsTag(identifier);
    return identifier > 0 && find(identifier) >= 0;
}

void ASNchoice::setChosen(std::unique_ptr<ASNobject> value) {
    assertChangeable();
    const int index = find(value->getTag());
    VTEST(index >= 0, kChoicePlace);
    index_ = index;
    chosen_ = std::move(value);
}

ASNobject* ASNchoice::setChosen(unsigned char tag) {
    return setChosenIndex(find(tag));
}

ASNobject* ASNchoice::setChosenIndex(int index) {
    assertChangeable();
    if (index < 0 || static_cast<size_t>(index) >= alternatives().size()) return nullptr;
    index_ = index;
    chosen_ = alternatives()[static_cast<size_t>(index)].make();
    return chosen_.get();
}

long ASNchoice::readElement(GenericFile& in, long maxLen) {
    const GenericFile::Nesting level(in);
    chosen_.reset();
    index_ = -1;
    const int identifier = in.peek();
    if (identifier < 0) return -1;
    const int index = find(identifier);
    if (index < 0 || !level.allowed()) return 0;
    index_ = index;
    chosen_ = alternatives()[static_cast<size_t>(index)].make();
    return chosen_->read(&in, maxLen, modeOfParts());
}

bool ASNchoice::writeElement(GenericFile& out) const {
    return chosen_ && chosen_->write(&out);
}

long ASNchoice::elementLength() const {
    return chosen_ ? chosen_->getLength() : 0;
}

long ASNchoice::read_contents(GenericFile*, long) {
    return 0;  // a choice has no body of its own
}

bool ASNchoice::write_contents(GenericFile*) const {
    return false;
}

long ASNchoice::lenOfBody() const {
    return elementLength();
}

}  // namespace crv
