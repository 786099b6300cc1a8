#include <gtest/gtest.h>

#include <chrono>

#include <deque>
#include <functional>

#include "asn/asn_any.h"
#include "asn/asn_choice.h"
#include "asn/asn_list.h"
#include "asn/asn_object_id.h"
#include "asn/asn_sequence.h"
#include "asn/asn_stream_ctx.h"
#include "asn/asn_strings.h"
#include "asn/asn_tagged.h"
#include "asn/asn_time.h"
#include "asn/known_oids.h"
#include "asn/typed_pointer_list.h"
#include "crypto/kc_hash.h"
#include "misc/exceptions.h"
#include "misc/memory_file.h"
#include "support/message_of.h"

namespace crv {
namespace {

using test::messageOf;

Bytes hex(std::string_view text) {
    Bytes out;
    std::string digits(text);
    std::erase(digits, ' ');
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        out.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return out;
}

class Point : public ASNchoiceOf<ASNutcTime, ASNgenTime, Implicit<1, ASNia5String>> {};

constexpr unsigned char kModes[] = {0, ASN_FLAG_CONST, ASN_FLAG_CONST | ASN_FLAG_COPY};

/// One member of each kind.
class Sample : public ASNsequenceF {
  public:
    ASNinteger version{3};
    ASNobjectId id;
    std::optional<Implicit<0, ASNoctstr>> note;
    std::optional<Explicit<1, Point>> point;
    ASNbool flag;
    ASNsetList<ASNinteger> numbers;
    std::optional<Explicit<2, ASNany>> rest;

  protected:
    [[nodiscard]] MemberTable members() const override {
        static constexpr Member kMembers[] = {
            defaulted<&Sample::version, 3>, member<&Sample::id>,      member<&Sample::note>, member<&Sample::point>,
            defaulted<&Sample::flag, 0>,    member<&Sample::numbers>, member<&Sample::rest>};
        return kMembers;
    }
};

class Pair : public ASNsetF {
  public:
    ASNinteger number;
    ASNenum state{1};
    std::optional<ASNutf8String> text;

  protected:
    [[nodiscard]] MemberTable members() const override {
        static constexpr Member kMembers[] = {member<&Pair::number>, writtenDefault<&Pair::state, 1>,
                                              member<&Pair::text>};
        return kMembers;
    }
};

/// A type that contains itself.
class Nested : public ASNsequenceList<Nested> {};

Sample fullSample() {
    Sample sample;
    sample.version.setValue(4);
    sample.id = OID_SHA1;
    sample.note.emplace().build("note");
    ASNobject* time = sample.point.emplace().setChosen(ASNgenTime::kTag);
    EXPECT_TRUE(dynamic_cast<ASNgenTime&>(*time).setSeconds(0));
    sample.flag.setValue(true);
    for (const long number : {300L, 2L, 1L}) sample.numbers.add().setValue(number);
    sample.rest.emplace() = ASNany(ASNutf8String("x"));
    return sample;
}

const Bytes kFullSample =
    hex("3037 020104 06052B0E03021A 8004 6E6F7465 A111 180F 31393730303130313030303030305A 0101FF 310A 020101 020102 "
        "0202012C A203 0C0178");
const Bytes kLeastSample = hex("3009 06052B0E03021A 3100");

TEST(AsnFramework, MembersAreWrittenAndReadAsTheModuleSays) {
    EXPECT_EQ(fullSample().encoded(), kFullSample);
    EXPECT_EQ(fullSample().getLength(), 57);
    Bytes digest(32);
    EXPECT_TRUE(fullSample().computeDigest(KcHashAlgo::Sha256, digest.data(), 32));
    EXPECT_EQ(digest, hashOf(KcHashAlgo::Sha256, kFullSample));
    EXPECT_FALSE(fullSample().computeDigest(KcHashAlgo::Sha256, digest.data(), 31));
    EXPECT_FALSE(ASNany().computeDigest(KcHashAlgo::Sha256, digest.data(), 32)) << "nothing to encode";
    Sample least;
    least.id = OID_SHA1;
    EXPECT_EQ(least.encoded(), kLeastSample);
    for (const unsigned char mode : kModes) {
        Sample read = fullSample();  // every member must be overwritten
        ASSERT_TRUE(read.readExactly(kFullSample, mode));
        EXPECT_EQ(read.encoded(), kFullSample);
        EXPECT_EQ(read.version.value(), 4);
        EXPECT_EQ(read.point->chosenAs<ASNgenTime>()->seconds(), 0);
        EXPECT_EQ(read.rest->getTag(), 0xA2);
        EXPECT_EQ(read.numbers[2].value(), 300);
        ASSERT_TRUE(read.readExactly(kLeastSample, mode));
        EXPECT_EQ(read.version.value(), 3);
        EXPECT_FALSE(read.note || read.point || read.flag.value() || read.rest);
        EXPECT_TRUE(read.numbers.empty());
    }
}

TEST(AsnFramework, SetMembersComeInAnyOrder) {
    Pair pair;
    ASSERT_TRUE(pair.readExactly(hex("3106 0C0161 020105")));
    EXPECT_EQ(pair.encoded(), hex("3109 020105 0A0101 0C0161"));
    for (const char* bad : {"3106 020105 020105", "3103 0A0101", "3106 020105 040161"})
        EXPECT_FALSE(pair.readExactly(hex(bad))) << "a member twice, one missing, a stranger: " << bad;
}

TEST(AsnFramework, LengthOctetsAtEveryBorder) {
    for (const auto& [length, octets] : {std::pair{0L, "00"},
                                         {127L, "7F"},
                                         {128L, "8180"},
                                         {256L, "820100"},
                                         {65535L, "82FFFF"},
                                         {65536L, "83010000"},
                                         {0x1000000L, "8401000000"},
                                         {-1L, "80"}}) {
        uint8_t out[5];
        const Bytes expected = hex(octets);
        EXPECT_EQ(lenOfLen(length), int(expected.size()));
        EXPECT_EQ(Bytes(out, out + write_length(length, out)), expected);
        MemoryFile in(expected);
        long back = 7;
        EXPECT_EQ(read_length(in, back), long(expected.size()));
        EXPECT_EQ(back, length);
    }
}

TEST(AsnFramework, ReadingAnswersMismatchOrFailure) {
    // octets, how many may be read, result
    const std::tuple<const char*, long, long> kRows[] = {
        {"0414 00000000000000000000", 10, 0},  // the header says 20, ten are allowed
        {"0414 00000000000000000000", 0, -1},  // the input ends inside
        {"04 03 414243", 0, 5},
        {"04 03 414243", 4, 0},
        {"02 01 05", 0, 0},    // another tag
        {"1F 8104 00", 0, 0},  // a tag number above 30
        {"04 80 0000", 0, 0},  // indefinite, but primitive
        {"24 80 0401 41 2480 0401 42 0000 0000", 0, 14},
        {"24 80 0401 41", 0, -1},
        {"24 06 0401 41 0401 42", 0, 8},
        {"24 03 020141", 0, 0},  // a segment of another type
        {"04 84 FFFFFFFF 41", 0, -1},
        {"04 85 0000000001 41", 0, 0},
        {"04 82 0001 41", 0, 5},  // BER allows a longer form than needed
        {"", 0, -1},
    };
    ASNoctstr joined;
    for (const auto& [text, maxLen, result] : kRows) {
        for (const unsigned char mode : kModes) {
            const Bytes octets = hex(text);
            MemoryFile in(octets);
            if (mode == 3 && maxLen <= 0) continue;
            EXPECT_EQ(ASNoctstr().read(&in, maxLen, mode), result) << text << " mode " << static_cast<int>(mode);
        }
    }
    ASSERT_TRUE(joined.readExactly(hex("24 80 0401 41 2480 0401 42 0000 0000")));
    EXPECT_EQ(joined.text(), "AB");
}

TEST(AsnFramework, ExplicitAndOwnTagsChangePlaces) {
    ASNobjectId oid(OID_SHA1);
    oid.setTag(0xA0);
    EXPECT_EQ(oid.getTag(), 0x80);
    EXPECT_EQ(oid.encoded(), hex("8005 2B0E03021A"));
    oid.setExplicitTagsOn();
    EXPECT_EQ(oid.getTag(), 0xA0);
    EXPECT_EQ(oid.encoded(), hex("A007 06052B0E03021A"));
    EXPECT_TRUE(oid.readExactly(hex("A080 06052B0E03021A 0000")));
    EXPECT_FALSE(oid.readExactly(hex("A009 06052B0E03021A 0500")));
    oid.setTag(0x63);
    EXPECT_EQ(oid.encoded(), hex("6307 06052B0E03021A"));
    oid.setExplicitTagsOff();
    EXPECT_EQ(oid.encoded(), hex("4305 2B0E03021A"));

    ASNexpl<ASNinteger> wrapped(0xA4);
    wrapped.value.setValue(-129);
    EXPECT_EQ(wrapped.encoded(), hex("A404 0202FF7F"));
    EXPECT_TRUE(wrapped.readExactly(hex("A480 020107 0000")));
    EXPECT_EQ(wrapped.value.value(), 7);
    EXPECT_FALSE(wrapped.readExactly(hex("A406 020107 020107")));

    ASNoctstr any;
    any.setTag(ASN_TAG_ANY);
    ASSERT_TRUE(any.readExactly(hex("890141"), ASN_FLAG_CONST | ASN_FLAG_COPY));
    EXPECT_EQ(any.getTag(), 0x89);
    std::optional<Implicit<5, ASNoctstr>> assigned;
    assigned = any;
    EXPECT_EQ(assigned->encoded(), hex("850141")) << "an assignment leaves the tag alone";
}

TEST(AsnFramework, OpenValueTakesAnyTagAgain) {
    ASNany any, built;
    Explicit<0, ASNany> tagged;
    ASNinteger five;
    ASNsequenceList<ASNinteger> list;
    const Bytes plain = hex("020105"), indefinite = hex("30 80 020105 0000");
    for (const unsigned char mode : kModes) {
        ASSERT_TRUE(any.readExactly(plain, mode));
        EXPECT_EQ(any.getTag(), 2);
        ASSERT_TRUE(any.readExactly(indefinite, mode));
        EXPECT_EQ(any.getTag(), 0x30);
        EXPECT_TRUE(any.wasIndefinite());
        ASSERT_TRUE(list << any);
        EXPECT_EQ(list[0].value(), 5);
        EXPECT_FALSE(five << any);
        for (const char* text : {"A003 020105", "A080 020105 0000"}) {
            const Bytes octets = hex(text);
            ASSERT_TRUE(tagged.readExactly(octets, mode));
            EXPECT_TRUE(five << tagged) << "the value is what stands inside the tag";
            EXPECT_EQ(tagged.valueTag(), 2);
        }
    }
    built.build(0x04, "ab", 2);
    EXPECT_EQ(toBytes(built.getMemory()), hex("04026162"));
    EXPECT_FALSE(any == built);
    any = ASNany();
    any = built;
    EXPECT_TRUE(any == built);
    EXPECT_FALSE(any.build(hex("0402616263")));
    EXPECT_FALSE(any.build(hex("00020000"))) << "end-of-contents octets are no element";
}

TEST(AsnFramework, KeptObjectGivesBackItsOctetsAndRefusesChanges) {
    const Bytes ber = hex("3081 0C 06052B0E03021A 3103 020105");  // length in a longer form than DER allows
    Sample kept;
    ASSERT_TRUE(kept.readExactly(ber, ASN_FLAG_CONST));
    EXPECT_EQ(kept.encoded(), ber);
    EXPECT_EQ(kept.keptEncoding().data(), ber.data()) << "by reference";
    EXPECT_EQ(kept.id.contents().data(), ber.data() + 5);
    const std::function<void()> changes[] = {[&] { kept.version.setValue(1); },  // a member that was left out
                                             [&] { kept.id = OID_MD5; }, [&] { kept.id = ASNobjectId(OID_MD5); },
                                             [&] { kept.numbers.add(); }, [&] { kept.setTag(0x80); }};
    for (const auto& change : changes)
        EXPECT_EQ(messageOf(change), "Assertion !( flags & ASN_FLAG_CONST ) failed in src/asn/asn_object");

    Sample copy = kept;
    EXPECT_EQ(copy.encoded(), ber);
    EXPECT_NE(copy.id.contents().data(), kept.id.contents().data()) << "a copy owns its octets";
    Sample changeable;
    ASSERT_GT(changeable.copyObject(kept), 0);
    changeable.id = OID_MD5;
    EXPECT_EQ(changeable.numbers[0].value(), 5);
    kept = fullSample();
    EXPECT_EQ(kept.encoded(), kFullSample);
    kept.id = OID_MD5;

    Implicit<0, ASNsetList<ASNinteger>> moved, again;
    {
        ASNsetList<ASNinteger> owner;
        ASSERT_TRUE(owner.readExactly(hex("3108 02020102 02020304"), ASN_FLAG_CONST | ASN_FLAG_COPY));
        moved = std::move(owner);
    }
    again = std::move(moved);
    EXPECT_EQ(again.encoded(), hex("A008 02020102 02020304")) << "under another tag, and the first owner is gone";

    const Bytes two = hex("0402 6162 0402 7365");
    MemoryFile row(two);
    ASNoctstr first;
    ASSERT_EQ(first.read(&row, 8, ASN_FLAG_CONST | ASN_FLAG_COPY), 4);
    const ByteView block(first.keptEncoding().data(), 8);
    EXPECT_EQ(toBytes(block.last(4)), Bytes(4)) << "what came behind the element is wiped at once";

    MemoryFile in(ber);
    EXPECT_EQ(messageOf([&] { static_cast<void>(ASNoctstr().read(&in, 0, ASN_FLAG_CONST | ASN_FLAG_COPY)); }),
              "Assertion !(maxLen <= 0 && (f & ASN_FLAG_COPY)) failed in src/asn/asn_object");
}

TEST(AsnFramework, NestingHasALimit) {
    const auto nested = [](size_t levels, bool indefinite) {
        std::deque<uint8_t> octets;
        for (; levels > 0; --levels) {
            uint8_t length[5];
            const int n = write_length(indefinite ? -1 : static_cast<long>(octets.size()), length);
            octets.insert(octets.begin(), length, length + n);
            octets.push_front(0x30);
            octets.insert(octets.end(), indefinite ? 2 : 0, uint8_t{0});
        }
        return Bytes(octets.begin(), octets.end());
    };
    Nested list;
    ASNany any;
    for (const bool indefinite : {false, true}) {
        EXPECT_TRUE(list.readExactly(nested(100, indefinite)));
        EXPECT_FALSE(list.readExactly(nested(101, indefinite)));
        EXPECT_FALSE(list.readExactly(nested(20000, indefinite), 1));
    }
    EXPECT_FALSE(any.readExactly(nested(20000, true)));
    // A deep tree is measured once, not once a level.
    Nested deep;
    Nested* at = &deep;
    for (int i = 0; i < 2000; ++i) at = &at->add();
    EXPECT_EQ(long(deep.encoded().size()), deep.getLength());
}

/// A source that hands out one octet at a time and fails, or ends, behind `good` octets.
class Trickle final : public BufferedFile {
  public:
    Trickle(ByteView octets, size_t good, bool fails) : octets_(octets), good_(good), fails_(fails) {}

  private:
    long readSome(uint8_t* out, size_t) override {
        if (at_ == good_) return fails_ ? -1 : 0;
        *out = octets_[at_++];
        return 1;
    }
    ByteView octets_;
    size_t good_, at_ = 0;
    bool fails_;
};

/// Writes until a number of octets is through.
class Full final : public GenericFile {
  public:
    explicit Full(size_t room) : room_(room) {}
    bool write(ByteView octets) override {
        const bool fits = octets.size() <= room_;
        room_ -= fits ? octets.size() : room_;
        return fits;
    }

  private:
    size_t room_;
};

TEST(AsnFramework, StreamsAreReadInEveryModeAndTruncationIsNeverAnObject) {
    const Bytes indefinite = hex("3080 06052B0E03021A A180 170D3730303130313030303030305A 0000 3180 020105 0000 0000");
    for (const Bytes& octets : {kFullSample, indefinite}) {
        for (const unsigned char mode : kModes) {
            const long limit = mode == 3 ? static_cast<long>(octets.size()) : 0;
            Bytes more = octets;
            more.push_back(0x55);
            Trickle good(more, more.size(), false);
            Sample sample;
            ASSERT_EQ(sample.read(&good, limit, mode), long(octets.size()));
            EXPECT_EQ(good.get(), 0x55) << "not an octet further";
            EXPECT_EQ(sample.numbers[sample.numbers.size() - 1].value().has_value(), true);
            EXPECT_TRUE(mode == 0 || sample.encoded() == octets);
            for (size_t end = 0; end < octets.size(); ++end) {
                Trickle failing(octets, end, true);
                EXPECT_LT(sample.read(&failing, limit, mode), 0)
                    << "fails behind " << end << " mode " << static_cast<int>(mode);
                Trickle ending(octets, end, false);
                EXPECT_LE(sample.read(&ending, limit, mode), 0)
                    << "ends behind " << end << " mode " << static_cast<int>(mode);
                EXPECT_LE(sample.readFromBuff(ByteView(octets).first(end), mode), 0) << "cut to " << end;
            }
        }
    }
    for (size_t room = 0; room < kFullSample.size(); ++room) {
        Full full(room);
        EXPECT_FALSE(fullSample().write(&full)) << room;
    }
}

TEST(AsnFramework, AnAbsurdLengthCostsNothing) {
    const Bytes octets = hex("04 84 FFFFFFFF 4142");
    Trickle in(octets, octets.size(), false);
    ASNoctstr string;
    EXPECT_EQ(string.read(&in), -1);
    HeldBytes held;
    const Bytes large(200000, 7);
    Trickle source(large, large.size(), false);
    EXPECT_EQ(held.load(source, 0xFFFFFFFF), 200000);
    EXPECT_EQ(toBytes(held.view()), large);
}

TEST(AsnChoice, AlternativesAreFoundByTagAndIndex) {
    Point point;
    MemoryFile out;
    EXPECT_FALSE(point.write(&out)) << "nothing is chosen";
    EXPECT_EQ(point.getChosenTag(), ASN_TAG_ANY);
    EXPECT_EQ(point.setChosen(static_cast<unsigned char>(ASNoctstr::kTag)), nullptr);
    EXPECT_EQ(point.setChosenIndex(3), nullptr);
    ASSERT_TRUE(point.readExactly(hex("810161")));
    EXPECT_EQ(point.getChosenIndex(), 2);
    EXPECT_EQ(point.chosenAs<ASNutcTime>(), nullptr);
    const Point copy = point;
    point.setChosen(std::make_unique<ASNgenTime>());
    EXPECT_EQ(point.getChosenIndex(), 1);
    EXPECT_THROW(point.setChosen(std::make_unique<ASNnull>()), VtestException);
    EXPECT_EQ(point.readFromBuff(hex("820161")), 0);
    point = copy;
    EXPECT_EQ(point.chosenAs<ASNia5String>()->utf8(), "a");
}

TEST(AsnObjectId, TextBothWaysWithValidation) {
    for (const char* text :
         {"0.0", "1.39.5", "2.40", "2.999.3", "1.3.6.1.4.1.32473.2.5.1", "1.2.9223372036854775808",
          "2.25.340282366920938463463374607431768211455", "2.340282366920938463463374607431768211455.1"}) {
        const auto oid = ASNobjectId::fromText(text);
        ASSERT_TRUE(oid) << text;
        EXPECT_EQ(oid->text(), text);
        EXPECT_TRUE(ASNobjectId().readExactly(oid->encoded())) << text;
    }
    for (const char* text : {"", "1", "1.", ".1", "1..2", "3.1", "0.40", "1.40", "1.2.", "01.2", "1.02", "1.-2", "1. 2",
                             "a.b", "1.2x", "2.25.340282366920938463463374607431768211456", "+1.2"})
        EXPECT_FALSE(ASNobjectId::fromText(text)) << text;
    ASNobjectId oid;
    EXPECT_EQ(oid.text(), "");
    for (const char* bad :
         {"0600", "060180", "0602 8001", "0602 2A80", "0603 2A 8001", "0614 2A 84808080808080808080808080808080808000"})
        EXPECT_FALSE(oid.readExactly(hex(bad))) << bad;
    EXPECT_EQ(ASNobjectId(OID_EC_PUBLIC_KEY).name(), "ecPublicKey");
    EXPECT_EQ(ASNobjectId(OID_EC_PUBLIC_KEY).encoded(), hex("0607 2A8648CE3D0201"));
}

TEST(AsnInteger, EveryBorderOfTheSignOctet) {
    for (const auto& [value, octets] : {std::pair{0L, "020100"}, {128L, "02020080"}, {-129L, "0202FF7F"}})
        EXPECT_EQ(ASNinteger(value).encoded(), hex(octets));
    for (int bit = 0; bit < 63; ++bit) {
        for (const long value : {1L << bit, (1L << bit) - 1, -(1L << bit), -(1L << bit) - 1}) {
            const Bytes octets = ASNinteger(value).encoded();
            const int bits = bit + (value == 1L << bit || value == -(1L << bit) - 1 ? 2 : 1);  // with that of the sign
            EXPECT_EQ(octets.size(), 2 + size_t(bits + 7) / 8) << value;
            ASNinteger back;
            ASSERT_TRUE(back.readExactly(octets)) << value;
            EXPECT_EQ(back.value(), value);
            EXPECT_EQ(back.decimal(), std::to_string(value));
        }
    }
    ASNinteger big;
    EXPECT_FALSE(big.readExactly(hex("0200")));
    big.setUnsigned(hex("0000 FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"));
    EXPECT_EQ(big.decimal(), "340282366920938463463374607431768211455");
    EXPECT_EQ(big.value(), std::nullopt);
    EXPECT_EQ(big.encoded(), hex("0211 00 FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF"));
    EXPECT_FALSE(big.readExactly(hex("2203 020105"))) << "no segments";
    big.setUnsigned(Bytes(1 << 20, 0x7F));
    EXPECT_TRUE(big.decimal().starts_with("0x7F7F")) << "in digits it would take hours";
}

TEST(AsnStrings, EveryTypeGivesUtf8) {
    const std::tuple<unsigned char, const char*, const char*> kRows[] = {
        {ASN_TAG_UTF8, "C582 E282AC F09F9880", "ł€😀"},
        {ASN_TAG_UTF8, "C5 41 EDA080", "\uFFFDA\uFFFD\uFFFD\uFFFD"},
        {ASN_TAG_UTF8, "C080 F5", "\uFFFD\uFFFD\uFFFD"},
        {ASN_TAG_T61, "41F3", "Aó"},
        {ASN_TAG_IA5, "41F3", "A\uFFFD"},
        {ASN_TAG_BMP, "0142 D83DDE00 00", "ł😀\uFFFD"},
        {ASN_TAG_UNIVERSAL, "00000142 00110000", "ł\uFFFD"},
    };
    for (const auto& [tag, octets, utf8] : kRows) EXPECT_EQ(stringToUtf8(tag, hex(octets)), utf8) << octets;
    EXPECT_EQ(ASNbmpString("ł").encoded(), hex("1E02 0142"));
    EXPECT_EQ(ASNt61String("ół").encoded(), hex("1402 F33F"));
    EXPECT_EQ(stringTagFor("A b-1"), ASN_TAG_PRINTABLE);
    EXPECT_EQ(stringTagFor("a@b"), ASN_TAG_UTF8);
}

TEST(AsnTime, BothTypesInEveryForm) {
    ASNutcTime utc;
    ASNgenTime general;
    const auto secondsOf = [](ASNtimeString& time, std::string_view text) {
        time.ASNoctstr::build(text);
        return time.seconds();
    };
    EXPECT_EQ(secondsOf(utc, "491231235959Z"), 2524607999);
    EXPECT_EQ(secondsOf(utc, "500101000000Z"), -631152000);
    EXPECT_EQ(secondsOf(general, "99991231235959Z"), 253402300799);
    EXPECT_EQ(secondsOf(general, "20240229000000Z"), 1709164800);
    for (const char* epoch : {"7001010000Z", "700101013000+0130", "691231220000-0200"})
        EXPECT_EQ(secondsOf(utc, epoch), 0) << epoch;
    for (const char* epoch : {"1970010100", "19700101000000.123Z"}) EXPECT_EQ(secondsOf(general, epoch), 0) << epoch;
    EXPECT_EQ(secondsOf(general, "1970010100.5"), 1800);
    EXPECT_EQ(secondsOf(general, "197001010000,2500000000000Z"), 15);
    for (const char* bad : {"70010100000Z", "", "700101000000.5Z", "7001010000.5Z", "70010100Z"})
        EXPECT_EQ(secondsOf(utc, bad), std::nullopt) << bad;
    for (const char* bad : {"20230229000000Z", "19700101240000Z", "19701301000000Z", "19700101000000.Z",
                            "19700101000000Zx", "1970-1-1000000Z"})
        EXPECT_EQ(secondsOf(general, bad), std::nullopt) << bad;
    ASSERT_TRUE(utc.setSeconds(2524607999));
    EXPECT_EQ(utc.text(), "491231235959Z");
    EXPECT_FALSE(utc.setSeconds(2524608000));
    EXPECT_FALSE(general.setSeconds(253402300800));
    EXPECT_EQ(timeText(-1), "1969-12-31 23:59:59");
}

TEST(AsnBits, NamedBitsAndUnusedBits) {
    ASNbitstr bits;
    EXPECT_EQ(bits.encoded(), hex("030100"));
    bits.setNamedBits(1U << 0 | 1U << 8);
    EXPECT_EQ(bits.encoded(), hex("0303 07 8080"));
    EXPECT_EQ(bits.namedBits(), 0x101U);
    EXPECT_FALSE(bits.bit(9));
    for (const char* octets : {"0300", "030101", "0302 08 80"}) EXPECT_FALSE(bits.readExactly(hex(octets))) << octets;
}

TEST(AsnStreams, OctetStringPassesThroughInPieces) {
    const std::pair<const char*, bool> kRows[] = {
        {"0405 6162636465", true},
        {"0481 05 6162636465", true},
        {"24 80 0402 6162 2480 0401 63 0000 2404 0402 6465 0000", true},
        {"24 09 0402 6162 0403 636465", true},
        {"24 08 0402 6162 0403 636465", false},  // the last segment leaves its string
        {"24 80 0202 6162 0000", false},
        {"0405 616263", false},  // never ends
    };
    for (const auto& [text, good] : kRows) {
        const Bytes octets = hex(text);
        for (size_t piece = 1; piece <= octets.size(); ++piece) {
            ASNoctstr string;
            MemoryFile out;
            long result = 1;
            for (size_t at = 0; at < octets.size() && result > 0; at += piece) {
                const ByteView part = ByteView(octets).subspan(at, std::min(piece, octets.size() - at));
                const bool last = at + piece >= octets.size();
                result = string.doReadData(reinterpret_cast<const char*>(part.data()), static_cast<long>(part.size()),
                                           last, out);
            }
            EXPECT_EQ(string.streamDone(), good) << text << " in pieces of " << piece;
            EXPECT_TRUE(!good || asText(out.written()) == "abcde") << text;
        }
    }
}

TEST(AsnStreams, KeptElementsKeepTheirHeadersAndManyPiecesCostNoMore) {
    for (const char* text : {"3081 03 020105", "3080 3082 0003 020105 0000"}) {
        const Bytes octets = hex(text);
        Trickle in(octets, octets.size(), false);
        ASNany any;
        ASSERT_EQ(any.read(&in, 0, ASN_FLAG_CONST), long(octets.size()));
        EXPECT_EQ(any.encoded(), octets) << text;
    }
    Bytes octets = hex("3080");
    for (int i = 0; i < 50000; ++i) octets.insert(octets.end(), {0x24, 0x80, 0, 0});
    octets.insert(octets.end(), {0, 0});
    const auto start = std::chrono::steady_clock::now();
    ASNany any;
    MemoryFile in(octets), nothing;
    EXPECT_EQ(any.doReadData(in, true, nothing), long(octets.size()));
    EXPECT_TRUE(any.streamDone() && any.encoded() == octets);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(AsnStreams, StructureIsCollectedAndContentsAreWrittenInPieces) {
    const Bytes octets = kFullSample;
    Sample sample;
    MemoryFile nothing;
    for (size_t at = 0; at < octets.size(); ++at) {
        EXPECT_FALSE(sample.streamDone());
        EXPECT_EQ(sample.doReadData(reinterpret_cast<const char*>(&octets[at]), 1, false, nothing), 1);
    }
    EXPECT_TRUE(sample.streamDone());
    EXPECT_EQ(sample.encoded(), octets);

    const auto write = [](long total) {
        Explicit<0, ASNoctstr> string;
        MemoryFile out;
        EXPECT_TRUE(string.beginStream(total, out));
        for (const std::string_view piece : {"abc", "de"}) {
            MemoryFile in(asBytes(piece));
            EXPECT_GT(string.doWriteData(in, long(piece.size()), piece == "de", out), 0);
        }
        return toBytes(out.written());
    };
    EXPECT_EQ(write(5), hex("A007 0405 6162636465"));
    EXPECT_EQ(write(-1), hex("A080 2480 0403 616263 0402 6465 0000 0000"));
    ASNoctstr string;
    EXPECT_EQ(string.doGetLen(300), 304);
}

TEST(TypedPointerLists, OwnTheirElementsAndCopyThem) {
    TypedPointerList<std::string> list;
    std::string& first = list.emplace("a");
    for (int i = 0; i < 100; ++i) list.emplace("b");
    EXPECT_EQ(&first, &list[0]) << "elements keep their address";
    TypedPointerList<std::string> copy = list;
    copy[0] = "c";
    EXPECT_EQ(list[0], "a");
    copy.insert(1, std::make_unique<std::string>("d"));
    EXPECT_EQ(*copy.remove(0), "c");
    EXPECT_EQ(*copy.begin(), "d");
    copy = copy;  // NOLINT: self-assignment is what is tested
    EXPECT_EQ(std::count(copy.begin(), copy.end(), "b"), 100);
}

}  // namespace
}  // namespace crv
