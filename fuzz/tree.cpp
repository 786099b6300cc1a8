// Any octets through the tree printer: lines of printable text, and an end that is told.
#include "crvasn/structure_kind.h"
#include "crvasn/tree_printer.h"
#include "round_trip.h"

using namespace crv;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Tree tree = printTree(ByteView(data, size));
    fuzz::check(tree.text.empty() == (size == 0));
    fuzz::check(tree.whole || tree.text.ends_with("malformed\n") || tree.text.ends_with("cut off\n"));
    for (const char c : tree.text) fuzz::check(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
    static_cast<void>(printTree(ByteView(data, size), {1, false}));
    static_cast<void>(structureKind(ByteView(data, size)));
    return 0;
}
