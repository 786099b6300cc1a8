// A Tarvo device for tests. The card id chooses what it does: 16 octets "CARD-0000000000x"; x = 'n' is not found, 'e'
// fails with error 0x1A2B. Its PIN is "1234", "blocked" finds it blocked.
#include <cstring>

namespace {
char mood = 'o';
unsigned char stored[4096];
unsigned storedLength = 0;
}  // namespace

#pragma GCC visibility push(default)
extern "C" {
int DtGetStatus(const unsigned char* cardId, long) {
    mood = cardId ? static_cast<char>(cardId[15]) : 'o';
    return mood == 'n' ? 1 : mood == 'e' ? 99 : 0;
}
unsigned DtGetLastError() {
    return 0x1A2B;
}
int DtLogin(const char* pin, unsigned length) {
    if (length == 7 && std::memcmp(pin, "blocked", 7) == 0) return 2;
    return length == 4 && std::memcmp(pin, "1234", 4) == 0 ? 0 : 1;
}
int DtLogout() {
    return 0;
}
int DtGetRBGSamples(unsigned char* out, unsigned length) {
    if (mood == 'r') return 99;
    std::memset(out, 0x5A, length);
    return 0;
}
int DtReadConfig(unsigned char* out, unsigned* length) {
    if (storedLength == 0) return 1;
    if (out) std::memcpy(out, stored, storedLength);
    *length = storedLength;
    return 0;
}
#ifndef CRV_TEST_BROKEN
int DtWriteConfig(const unsigned char* data, unsigned length) {
    if (length > sizeof stored) return 99;
    std::memcpy(stored, data, length);
    storedLength = length;
    return 0;
}
#endif
}
