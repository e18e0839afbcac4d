#include <gtest/gtest.h>

#include <sys/mman.h>

#include <memory>
#include <set>
#include <string>

#include "asn1/asn1_items.h"
#include "tests/asn1/der_builder.h"
#include "tests/asn1/log_capture.h"
#include "vexa/vexa_asn1.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

using dertest::Bytes;
using dertest::Cat;
using dertest::Seq;
using dertest::Tlv;
using logtest::Records;

/* The input lives in an exact-size heap block, so a read one byte past it
 * is caught by the address sanitizer. */
struct Decoded {
    std::unique_ptr<uint8_t[]> input;
    uint32_t size = 0;
    void *record = nullptr;
    uint32_t code = 0;
    uint32_t consumed = 0;
    ~Decoded() { VexaFree(record); }
    template <class T>
    const T &As() const
    {
        return *static_cast<const T *>(record);
    }
};

std::unique_ptr<uint8_t[]> Copy(const Bytes &der)
{
    std::unique_ptr<uint8_t[]> block(new uint8_t[der.size() == 0 ? 1 : der.size()]);
    std::copy(der.begin(), der.end(), block.get());
    return block;
}

std::unique_ptr<Decoded> Decode(const VexaAsnItem &item, const Bytes &der, uint32_t flags = 0)
{
    std::unique_ptr<Decoded> run(new Decoded);
    run->input = Copy(der);
    run->size = static_cast<uint32_t>(der.size());
    run->code = VexaAsnDecodeItem(run->input.get(), run->size, &item, flags, &run->record, &run->consumed);
    if (run->code != VEXA_OK) {
        EXPECT_EQ(run->record, nullptr) << "no record on failure";
    }
    return run;
}

Bytes ViewBytes(const VexaAsnOcts &v)
{
    return v.data == nullptr ? Bytes() : Bytes(v.data, v.data + v.len);
}

/* The octets decoder run directly; dest's data points into a block that is
 * gone afterwards, so only its null-ness may be looked at. */
struct OctsRun {
    uint32_t code;
    uint32_t consumed;
    uint32_t pos;
};

OctsRun RunOcts(const VexaAsnMember &member, const Bytes &der, VexaAsnOcts *dest)
{
    std::unique_ptr<uint8_t[]> input = Copy(der);
    VexaAsnStream s{};
    EXPECT_EQ(VexaAsnStreamInit(&s, input.get(), static_cast<uint32_t>(der.size())), VEXA_OK);
    OctsRun r{};
    r.code = VexaAsnDecodeOcts(&s, dest, &r.consumed, &member);
    r.pos = s.pos;
    return r;
}

TEST(TemplateOcts, KeepsElementsAsViewsIntoTheInput)
{
    const Bytes long128 = Tlv(0x04, Bytes(128, 0x11));
    const struct {
        const char *name;
        VexaAsnMember member;
        Bytes der;
        uint32_t code;
        Bytes value;
        VexaAsnTag tag;
    } cases[] = {
        {"sign octet of an INTEGER dropped", InternalField(g_itemVexaAsnBigInt, 0), {0x02, 0x02, 0x00, 0xFF},
         VEXA_OK, {0xFF}, {0, 0, 2}},
        {"only one zero octet dropped", InternalField(g_itemVexaAsnBigInt, 0), {0x02, 0x03, 0x00, 0x00, 0x01},
         VEXA_OK, {0x00, 0x01}, {0, 0, 2}},
        {"negative INTEGER kept as is", InternalField(g_itemVexaAsnBigInt, 0), {0x02, 0x02, 0xFF, 0x01}, VEXA_OK,
         {0xFF, 0x01}, {0, 0, 2}},
        {"INTEGER zero has no value octets", InternalField(g_itemVexaAsnBigInt, 0), {0x02, 0x01, 0x00}, VEXA_OK,
         {}, {0, 0, 2}},
        {"zero dropped under any class with number 2", InternalImplicit(2, g_itemVexaAsnOcts, 0),
         {0x82, 0x02, 0x00, 0x05}, VEXA_OK, {0x05}, {2, 0, 2}},
        {"OCTET STRING keeps its zero", InternalField(g_itemVexaAsnOcts, 0), {0x04, 0x02, 0x00, 0x05}, VEXA_OK,
         {0x00, 0x05}, {0, 0, 4}},
        {"WHOLE covers identifier and length", InternalField(g_itemVexaAsnOcts, 0, kWhole),
         {0x04, 0x02, 0xAA, 0xBB}, VEXA_OK, {0x04, 0x02, 0xAA, 0xBB}, {0, 0, 4}},
        {"WHOLE keeps the sign octet", InternalField(g_itemVexaAsnBigInt, 0, kWhole), {0x02, 0x02, 0x00, 0xFF},
         VEXA_OK, {0x02, 0x02, 0x00, 0xFF}, {0, 0, 2}},
        {"WHOLE with a long-form length", InternalField(g_itemVexaAsnOcts, 0, kWhole), long128, VEXA_OK, long128,
         {0, 0, 4}},
        {"any class, form and number", InternalField(g_itemVexaAsnOcts, 0), {0xA5, 0x01, 0x07}, VEXA_OK, {0x07},
         {2, 1, 5}},
        {"universal INTEGER item refuses OCTET STRING", InternalField(g_itemVexaAsnBigInt, 0), {0x04, 0x01, 0x01},
         VEXA_ERR_ASN_OCTS_TAG, {}, {}},
        {"SEQUENCE item refuses a primitive 16", InternalField(g_itemVexaAsnSeqRaw, 0), {0x10, 0x00},
         VEXA_ERR_ASN_OCTS_TAG, {}, {}},
        {"IMPLICIT fixes the number even for an any-tag item", InternalImplicit(0, g_itemVexaAsnOcts, 0),
         {0x81, 0x01, 0xFF}, VEXA_ERR_ASN_OCTS_TAG, {}, {}},
        {"IMPLICIT fixes the class", InternalImplicit(0, g_itemVexaAsnOcts, 0), {0x00, 0x01, 0xFF},
         VEXA_ERR_ASN_OCTS_TAG, {}, {}},
        {"IMPLICIT leaves the form open for an any-form item", InternalImplicit(0, g_itemVexaAsnOcts, 0),
         {0xA0, 0x01, 0xFF}, VEXA_OK, {0xFF}, {2, 1, 0}},
        {"high tag number", InternalField(g_itemVexaAsnOcts, 0), {0x1F, 0x01, 0x00}, VEXA_ERR_ASN_TAG, {}, {}},
        {"content past the end", InternalField(g_itemVexaAsnOcts, 0), {0x04, 0x05, 0xAA}, VEXA_ERR_ASN_LENGTH, {},
         {}},
    };
    for (const auto &c : cases) {
        VexaAsnOcts dest{};
        std::unique_ptr<uint8_t[]> input = Copy(c.der);
        VexaAsnStream s{};
        ASSERT_EQ(VexaAsnStreamInit(&s, input.get(), static_cast<uint32_t>(c.der.size())), VEXA_OK);
        uint32_t consumed = 0;
        EXPECT_EQ(VexaAsnDecodeOcts(&s, &dest, &consumed, &c.member), c.code) << c.name;
        if (c.code != VEXA_OK) {
            EXPECT_EQ(s.pos, 0u) << c.name << ": the cursor goes back";
            continue;
        }
        EXPECT_EQ(ViewBytes(dest), c.value) << c.name;
        EXPECT_EQ(dest.len, c.value.size()) << c.name;
        EXPECT_EQ(dest.tagClass, c.tag.tagClass) << c.name;
        EXPECT_EQ(dest.constructed, c.tag.constructed) << c.name;
        EXPECT_EQ(dest.tagNumber, c.tag.tagNumber) << c.name;
        EXPECT_EQ(consumed, c.der.size()) << c.name;
        EXPECT_EQ(s.pos, c.der.size()) << c.name;
        if (!c.value.empty()) {
            EXPECT_GE(dest.data, input.get()) << c.name << ": a view, not a copy";
            EXPECT_LE(dest.data + dest.len, input.get() + c.der.size()) << c.name;
        }
    }
}

TEST(TemplateOcts, EmptyContentLeavesOnlyTheDataPointerNull)
{
    const VexaAsnMember whole = InternalField(g_itemVexaAsnOcts, 0, kWhole);
    const Bytes null = dertest::Null();
    VexaAsnOcts dest{};
    const OctsRun r = RunOcts(whole, null, &dest);
    EXPECT_EQ(r.code, VEXA_OK);
    EXPECT_EQ(dest.data, nullptr) << "WHOLE does not apply to an empty element";
    EXPECT_EQ(dest.len, 0u);
    EXPECT_EQ(dest.tagNumber, 0u) << "the tag of a NULL is not recorded";
    EXPECT_EQ(r.consumed, 2u);

    VexaAsnOcts stale{7, 1, 1, 9, reinterpret_cast<const uint8_t *>("x")};
    EXPECT_EQ(RunOcts(whole, null, &stale).code, VEXA_OK);
    EXPECT_EQ(stale.data, nullptr);
    EXPECT_EQ(stale.len, 7u) << "other fields keep their values";
}

TEST(TemplateOcts, PeekViewsTheElementAndLeavesTheCursor)
{
    const Bytes attrs = Tlv(0xA0, Seq({dertest::Oid({0x01}), dertest::Set({dertest::Null()})}));
    {
        const VexaAsnMember peek = InternalImplicit(0, g_itemVexaAsnSetRaw, 0, kPeek | kWhole);
        VexaAsnOcts dest{};
        const OctsRun r = RunOcts(peek, attrs, &dest);
        EXPECT_EQ(r.code, VEXA_OK);
        EXPECT_EQ(r.consumed, 0u);
        EXPECT_EQ(r.pos, 0u);
        EXPECT_EQ(dest.len, attrs.size());
        /* stored under the SET tag, so 0x31 can stand in for the [0] */
        EXPECT_EQ(dest.tagClass * 64 | dest.constructed * 32 | dest.tagNumber, 0x31u);
    }
    {
        const VexaAsnMember peekUntagged = InternalField(g_itemVexaAsnOcts, 0, kPeek | kWhole);
        VexaAsnOcts dest{};
        const OctsRun r = RunOcts(peekUntagged, attrs, &dest);
        EXPECT_EQ(r.code, VEXA_OK);
        EXPECT_EQ(dest.tagClass, 2u) << "without IMPLICIT the tag stays as read";
    }
    {
        const VexaAsnMember peekSkip = InternalField(g_itemVexaAsnOcts, 0, kPeek | kSkip);
        EXPECT_EQ(RunOcts(peekSkip, attrs, nullptr).code, VEXA_ERR_ASN_PEEK);
    }
    {
        const VexaAsnMember skip = InternalField(g_itemVexaAsnOcts, 0, kSkip);
        const OctsRun r = RunOcts(skip, attrs, nullptr);
        EXPECT_EQ(r.code, VEXA_OK);
        EXPECT_EQ(r.pos, attrs.size());
    }
    {
        const VexaAsnMember plain = InternalField(g_itemVexaAsnOcts, 0);
        EXPECT_EQ(RunOcts(plain, attrs, nullptr).code, VEXA_ERR_PARAM) << "no destination without SKIP";
    }
}

TEST(TemplateBits, KeepsTheValueOctetsAfterTheUnusedBitsCount)
{
    const struct {
        const char *name;
        VexaAsnMember member;
        Bytes der;
        uint32_t code;
        Bytes value;
    } cases[] = {
        {"one value octet", InternalField(g_itemVexaAsnBits, 0), {0x03, 0x02, 0x07, 0x80}, VEXA_OK, {0x80}},
        {"only the unused-bits octet", InternalField(g_itemVexaAsnBits, 0), {0x03, 0x01, 0x00}, VEXA_OK, {}},
        {"no content at all", InternalField(g_itemVexaAsnBits, 0), {0x03, 0x00}, VEXA_ERR_ASN_BITS, {}},
        {"constructed form", InternalField(g_itemVexaAsnBits, 0), {0x23, 0x03, 0x03, 0x01, 0x00}, VEXA_ERR_ASN_TAG,
         {}},
        {"implicitly tagged", InternalImplicit(3, g_itemVexaAsnBits, 0), {0x83, 0x02, 0x01, 0x86}, VEXA_OK, {0x86}},
        {"universal where a tag is expected", InternalImplicit(3, g_itemVexaAsnBits, 0), {0x03, 0x02, 0x01, 0x86},
         VEXA_ERR_ASN_TAG, {}},
        {"SKIP steps over", InternalField(g_itemVexaAsnBits, 0, kSkip), {0x03, 0x03, 0x00, 0x01, 0x02}, VEXA_OK,
         {}},
    };
    for (const auto &c : cases) {
        std::unique_ptr<uint8_t[]> input = Copy(c.der);
        VexaAsnStream s{};
        ASSERT_EQ(VexaAsnStreamInit(&s, input.get(), static_cast<uint32_t>(c.der.size())), VEXA_OK);
        VexaAsnOcts dest{};
        uint32_t consumed = 0;
        EXPECT_EQ(VexaAsnDecodeBits(&s, &dest, &consumed, &c.member), c.code) << c.name;
        EXPECT_EQ(s.pos, c.code == VEXA_OK ? c.der.size() : 0u) << c.name;
        if (c.code == VEXA_OK) {
            EXPECT_EQ(ViewBytes(dest), c.value) << c.name;
            EXPECT_EQ(dest.len, c.value.size()) << c.name;
            EXPECT_EQ(consumed, c.der.size()) << c.name;
        }
    }
}

TEST(TemplateInt, DecodesSmallIntegersAndBooleans)
{
    const struct {
        const char *name;
        VexaAsnMember member;
        Bytes der;
        uint32_t code;
        uint32_t value;
    } cases[] = {
        {"one octet", InternalField(g_itemVexaAsnInt, 0), {0x02, 0x01, 0x05}, VEXA_OK, 5},
        {"minus one is sign-extended", InternalField(g_itemVexaAsnInt, 0), {0x02, 0x01, 0xFF}, VEXA_OK,
         0xFFFFFFFFu},
        {"sign octet then 0x80", InternalField(g_itemVexaAsnInt, 0), {0x02, 0x02, 0x00, 0x80}, VEXA_OK, 128},
        {"four octets", InternalField(g_itemVexaAsnInt, 0), {0x02, 0x04, 0x7F, 0xFF, 0xFF, 0xFE}, VEXA_OK,
         0x7FFFFFFEu},
        {"five octets", InternalField(g_itemVexaAsnInt, 0), {0x02, 0x05, 0x80, 0x00, 0x00, 0x00, 0x01},
         VEXA_ERR_ASN_INT, 0},
        {"five octets skipped", InternalField(g_itemVexaAsnInt, 0, kSkip),
         {0x02, 0x05, 0x80, 0x00, 0x00, 0x00, 0x01}, VEXA_OK, 0xEEEEEEEEu},
        {"empty", InternalField(g_itemVexaAsnInt, 0), {0x02, 0x00}, VEXA_ERR_ASN_INT, 0},
        {"ENUMERATED", InternalField(g_itemVexaAsnEnum, 0), {0x0A, 0x01, 0x04}, VEXA_OK, 4},
        {"INTEGER where ENUMERATED is expected", InternalField(g_itemVexaAsnEnum, 0), {0x02, 0x01, 0x04},
         VEXA_ERR_ASN_TAG, 0},
        {"TRUE", InternalField(g_itemVexaAsnBool, 0), {0x01, 0x01, 0xFF}, VEXA_OK, 1},
        {"FALSE", InternalField(g_itemVexaAsnBool, 0), {0x01, 0x01, 0x00}, VEXA_OK, 0},
        {"BOOLEAN other than 0xFF is false", InternalField(g_itemVexaAsnBool, 0), {0x01, 0x01, 0x01}, VEXA_OK, 0},
        {"BOOLEAN of two octets", InternalField(g_itemVexaAsnBool, 0), {0x01, 0x02, 0xFF, 0xFF}, VEXA_ERR_ASN_BOOL,
         0},
        {"BOOLEAN of five octets", InternalField(g_itemVexaAsnBool, 0), {0x01, 0x05, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
         VEXA_ERR_ASN_INT, 0},
        {"empty BOOLEAN", InternalField(g_itemVexaAsnBool, 0), {0x01, 0x00}, VEXA_ERR_ASN_INT, 0},
        {"implicitly tagged BOOLEAN", InternalImplicit(4, g_itemVexaAsnBool, 0), {0x84, 0x01, 0xFF}, VEXA_OK, 1},
        {"implicitly tagged BOOLEAN of two octets", InternalImplicit(4, g_itemVexaAsnBool, 0),
         {0x84, 0x02, 0xFF, 0xFF}, VEXA_ERR_ASN_BOOL, 0},
        {"constructed INTEGER", InternalField(g_itemVexaAsnInt, 0), {0x22, 0x01, 0x05}, VEXA_ERR_ASN_TAG, 0},
        {"member without an item never matches", VexaAsnMember{nullptr, 0, 0, 0, 0, 0}, {0x02, 0x01, 0x05},
         VEXA_ERR_ASN_TAG, 0},
    };
    for (const auto &c : cases) {
        std::unique_ptr<uint8_t[]> input = Copy(c.der);
        VexaAsnStream s{};
        ASSERT_EQ(VexaAsnStreamInit(&s, input.get(), static_cast<uint32_t>(c.der.size())), VEXA_OK);
        uint32_t value = 0xEEEEEEEEu;
        uint32_t consumed = 0;
        EXPECT_EQ(VexaDecodeInt(&s, &value, &consumed, &c.member), c.code) << c.name;
        EXPECT_EQ(s.pos, c.code == VEXA_OK ? c.der.size() : 0u) << c.name;
        if (c.code == VEXA_OK) {
            EXPECT_EQ(value, c.value) << c.name;
        } else {
            EXPECT_EQ(value, 0xEEEEEEEEu) << c.name << ": nothing written on failure";
        }
    }
}

class TemplateDiagnostics : public logtest::Captured {};

TEST_F(TemplateDiagnostics, IntegerWithoutDestinationIsLoggedUnderItsDecoder)
{
    const Bytes der = {0x02, 0x01, 0x05};
    VexaAsnStream s{};
    ASSERT_EQ(VexaAsnStreamInit(&s, der.data(), 3), VEXA_OK);
    const VexaAsnMember member = InternalField(g_itemVexaAsnInt, 0);
    uint32_t consumed = 0;
    EXPECT_EQ(VexaDecodeInt(&s, nullptr, &consumed, &member), VEXA_ERR_ASN_INT);
    ASSERT_EQ(Records().size(), 1u);
    EXPECT_EQ(Records()[0].function, "VexaDecodeInt");
    EXPECT_EQ(Records()[0].code, VEXA_ERR_ASN_INT);
    EXPECT_EQ(Records()[0].level, 0u);
    EXPECT_EQ(Records()[0].message, "");
}

/* SEQUENCE { a INTEGER, b INTEGER-as-octets OPTIONAL, c [1] EXPLICIT INTEGER
 * DEFAULT, d INTEGER OPTIONAL SKIP } */
struct SeqRecord {
    uint32_t a;
    VexaAsnOcts b;
    uint32_t c;
};

const VexaAsnMember kSeqMembers[] = {
    InternalField(g_itemVexaAsnInt, offsetof(SeqRecord, a)),
    InternalField(g_itemVexaAsnBigInt, offsetof(SeqRecord, b), kOptional),
    InternalExplicit(1, g_itemVexaAsnInt, offsetof(SeqRecord, c), kDefault),
    InternalField(g_itemVexaAsnBool, 0, kOptional | kSkip),
};
const VexaAsnItem kSeqItem = InternalSeqItem(kSeqMembers, sizeof(SeqRecord));

Bytes A(uint8_t v) { return dertest::Int({v}); }
Bytes C(uint8_t v) { return dertest::Explicit(1, dertest::Int({v})); }

TEST(TemplateSeq, DecodesMembersInOrderAndRefusesLeftovers)
{
    const struct {
        const char *name;
        Bytes der;
        uint32_t code;
        uint32_t a;
        Bytes b;
        uint32_t c;
    } cases[] = {
        {"every member", Seq({A(1), dertest::Int({0x00, 0x82}), C(3), dertest::Bool(true)}), VEXA_OK, 1, {0x82}, 3},
        {"optional members missing at the end", Seq({A(1)}), VEXA_OK, 1, {}, 0},
        {"optional member missing in the middle", Seq({A(1), C(3)}), VEXA_OK, 1, {}, 3},
        {"extra trailing element", Seq({A(1), dertest::Int({2}), C(3), dertest::Bool(true), dertest::Null()}),
         VEXA_ERR_ASN_SEQ, 0, {}, 0},
        {"element no member takes", Seq({A(1), dertest::Null()}), VEXA_ERR_ASN_SEQ, 0, {}, 0},
        {"required member missing", Seq({}), VEXA_ERR_ASN_SEQ, 0, {}, 0},
        {"explicit wrapper with a stray byte inside", Seq({A(1), Tlv(0xA1, Cat({dertest::Int({3}), {0x00}}))}),
         VEXA_ERR_ASN_SEQ, 0, {}, 0},
        {"optional member that fails to decode leaves its bytes", Seq({A(1), Tlv(0xA1, Tlv(0x02, {}))}),
         VEXA_ERR_ASN_SEQ, 0, {}, 0},
        {"member longer than its SEQUENCE", Cat({{0x30, 0x03, 0x02, 0x05, 0x01}, {0x02, 0x03, 0x04, 0x05}}),
         VEXA_ERR_ASN_LENGTH, 0, {}, 0},
        {"a SET is not a SEQUENCE", dertest::Set({A(1)}), VEXA_ERR_ASN_TAG, 0, {}, 0},
        {"an indefinite length", {0x30, 0x80, 0x02, 0x01, 0x01, 0x00, 0x00}, VEXA_ERR_ASN_LENGTH, 0, {}, 0},
    };
    for (const auto &c : cases) {
        std::unique_ptr<Decoded> run = Decode(kSeqItem, c.der);
        EXPECT_EQ(run->code, c.code) << c.name;
        if (c.code != VEXA_OK) {
            continue;
        }
        const SeqRecord &r = run->As<SeqRecord>();
        EXPECT_EQ(r.a, c.a) << c.name;
        EXPECT_EQ(ViewBytes(r.b), c.b) << c.name;
        if (c.b.empty()) {
            EXPECT_EQ(r.b.tagNumber, 0u) << c.name << ": an absent view is all zero";
        }
        EXPECT_EQ(r.c, c.c) << c.name;
        EXPECT_EQ(run->consumed, c.der.size()) << c.name;
    }
}

TEST(TemplateSeq, TheTopLevelElementEndsWhereItsLengthSays)
{
    const Bytes der = Cat({Seq({A(7)}), {0xDE, 0xAD}});
    std::unique_ptr<Decoded> run = Decode(kSeqItem, der);
    ASSERT_EQ(run->code, VEXA_OK) << "bytes after the element are the caller's";
    EXPECT_EQ(run->consumed, der.size() - 2);
    EXPECT_EQ(run->As<SeqRecord>().a, 7u);
}

TEST(TemplateSeq, AFailedDecodePutsTheCursorBack)
{
    const Bytes der = Cat({{0x05, 0x00}, Seq({A(1), dertest::Null()})});
    VexaAsnStream s{};
    ASSERT_EQ(VexaAsnStreamInit(&s, der.data(), static_cast<uint32_t>(der.size())), VEXA_OK);
    s.pos = 2;
    SeqRecord rec{};
    const VexaAsnMember top = InternalField(kSeqItem, 0);
    uint32_t consumed = 0;
    EXPECT_EQ(VexaAsnDecodeSeq(&s, &rec, &consumed, &top), VEXA_ERR_ASN_SEQ);
    EXPECT_EQ(s.pos, 2u);
    EXPECT_EQ(VexaAsnDecodeMember(&s, &rec, &top), VEXA_ERR_ASN_SEQ);
    EXPECT_EQ(s.pos, 2u);
    const VexaAsnMember optionalTop = InternalField(kSeqItem, 0, kOptional);
    EXPECT_EQ(VexaAsnDecodeMember(&s, &rec, &optionalTop), VEXA_OK) << "absent, not failed";
    EXPECT_EQ(s.pos, 2u);
}

TEST_F(TemplateDiagnostics, AbsentOptionalMembersLeaveNoRecordsAndFailuresLeaveAChain)
{
    std::unique_ptr<Decoded> ok = Decode(kSeqItem, Seq({A(1)}));
    EXPECT_EQ(ok->code, VEXA_OK);
    EXPECT_TRUE(Records().empty());

    /* a member cut short inside: the chain names every level from the
     * length check out to the entry point */
    Decode(kSeqItem, Cat({{0x30, 0x03, 0x02, 0x05, 0x01}, {0x02, 0x03, 0x04, 0x05}}));
    ASSERT_FALSE(Records().empty());
    EXPECT_EQ(Records().front().function, "InternalDecLen");
    EXPECT_EQ(Records().front().message, "overflow length.");
    EXPECT_EQ(Records().back().function, "VexaAsnDecodeItem");
    for (const logtest::Record &r : Records()) {
        EXPECT_EQ(r.code, VEXA_ERR_ASN_LENGTH) << r.function;
    }
}

/* A bounded list of whole elements: at most two of three slots fill. */
struct ListRecord {
    uint32_t count;
    VexaAsnOcts slots[3];
};
const VexaAsnMember kTwoSlots[1] = {InternalSlots(g_itemVexaAsnOcts, offsetof(ListRecord, slots), 2, kWhole)};
const VexaAsnItem kListItem = InternalListItem(kTwoSlots, sizeof(ListRecord), VEXA_ASN_TAG_SEQUENCE);

/* A template whose slots would run past its record. */
struct ShortListRecord {
    uint32_t count;
    VexaAsnOcts slots[1];
};
const VexaAsnMember kTooManySlots[1] = {InternalSlots(g_itemVexaAsnOcts, offsetof(ShortListRecord, slots), 2)};
const VexaAsnItem kBrokenListItem = InternalListItem(kTooManySlots, sizeof(ShortListRecord), VEXA_ASN_TAG_SEQUENCE);

TEST(TemplateList, FillsAtMostItsCapacity)
{
    const Bytes e1 = dertest::Int({1});
    const Bytes e2 = dertest::Octets({2, 2});
    const Bytes e3 = dertest::Null();
    const struct {
        const char *name;
        const VexaAsnItem *item;
        Bytes der;
        uint32_t code;
        uint32_t count;
    } cases[] = {
        {"empty", &kListItem, Seq({}), VEXA_OK, 0},
        {"two of two", &kListItem, Seq({e1, e2}), VEXA_OK, 2},
        {"three for two", &kListItem, Seq({e1, e2, e3}), VEXA_ERR_ASN_LIST, 0},
        {"element cut short", &kListItem, Cat({{0x30, 0x04}, e1, {0x04, 0x02}}), VEXA_ERR_ASN_LIST, 0},
        {"a SET for a SEQUENCE OF", &kListItem, dertest::Set({e1}), VEXA_ERR_ASN_LIST, 0},
        {"slots past the record", &kBrokenListItem, Seq({e1}), VEXA_ERR_ASN_LIST, 0},
    };
    for (const auto &c : cases) {
        std::unique_ptr<Decoded> run = Decode(*c.item, c.der);
        EXPECT_EQ(run->code, c.code) << c.name;
        if (c.code == VEXA_OK) {
            const ListRecord &r = run->As<ListRecord>();
            EXPECT_EQ(r.count, c.count) << c.name;
            if (c.count == 2) {
                EXPECT_EQ(ViewBytes(r.slots[0]), e1) << "WHOLE applies to every element";
                EXPECT_EQ(ViewBytes(r.slots[1]), e2);
            }
        }
    }
}

TEST(TemplateList, CountIsWrittenOnlyOnSuccess)
{
    const Bytes der = Seq({dertest::Int({1}), dertest::Int({2}), dertest::Int({3})});
    VexaAsnStream s{};
    ASSERT_EQ(VexaAsnStreamInit(&s, der.data(), static_cast<uint32_t>(der.size())), VEXA_OK);
    ListRecord rec{};
    rec.count = 77;
    const VexaAsnMember top = InternalField(kListItem, 0);
    uint32_t consumed = 0;
    EXPECT_EQ(VexaAsnDecodeList(&s, &rec, &consumed, &top), VEXA_ERR_ASN_LIST);
    EXPECT_EQ(rec.count, 77u);
    EXPECT_EQ(rec.slots[1].len, 3u) << "slots filled before the failure stay filled";
    EXPECT_EQ(rec.slots[2].len, 0u) << "never past the capacity";
    EXPECT_EQ(s.pos, 0u);
}

/* Extensions stored by identifier. */
struct ExtRecord {
    uint32_t keyUsage;
    uint32_t ca;
};
const VexaAsnMember kExtMembers[] = {
    InternalAttr(AOID_CE_KEYUSAGE, g_itemVexaX509KeyUsage, offsetof(ExtRecord, keyUsage)),
    InternalAttr(AOID_CE_BASICCONSTRAINTS, g_itemVexaX509BasicConstraints, offsetof(ExtRecord, ca)),
};
const VexaAsnItem kExtItem = InternalAttrsItem(kExtMembers, sizeof(ExtRecord), VEXA_ASN_TAG_SEQUENCE);

TEST(TemplateAttrs, StoresKnownEntriesByIdentifierAndIgnoresTheRest)
{
    using dertest::Extension;
    const Bytes ku6 = dertest::Bits({0x01, 0x06});
    const Bytes ku80 = dertest::Bits({0x07, 0x80});
    const Bytes caTrue = Seq({dertest::Bool(true)});
    const Bytes ski = Extension(dertest::OidSubjectKeyId(), dertest::Octets({1, 2, 3}), true);
    const struct {
        const char *name;
        Bytes der;
        uint32_t code;
        uint32_t keyUsage;
        uint32_t ca;
    } cases[] = {
        {"unknown critical then known", Seq({ski, Extension(dertest::OidKeyUsage(), ku6)}), VEXA_OK, 6, 0},
        {"both known", Seq({Extension(dertest::OidBasicConstraints(), caTrue, true),
                            Extension(dertest::OidKeyUsage(), ku6)}),
         VEXA_OK, 6, 1},
        {"a later entry overwrites", Seq({Extension(dertest::OidKeyUsage(), ku6), Extension(dertest::OidKeyUsage(), ku80)}),
         VEXA_OK, 0x80, 0},
        {"value need not fill the OCTET STRING", Seq({Extension(dertest::OidKeyUsage(), Cat({ku6, {0x00}}))}), VEXA_OK,
         6, 0},
        {"empty value", Seq({Extension(dertest::OidSubjectKeyId(), {})}), VEXA_ERR_ASN_LIST, 0, 0},
        {"known value that does not decode", Seq({Extension(dertest::OidKeyUsage(), dertest::Octets({6}))}),
         VEXA_ERR_ASN_TAG, 0, 0},
        {"value read only inside its OCTET STRING",
         Seq({Extension(dertest::OidKeyUsage(), {0x03, 0x03, 0x01, 0x06})}), VEXA_ERR_ASN_LENGTH, 0, 0},
        {"entry that is not a SEQUENCE", Seq({dertest::Int({1})}), VEXA_ERR_ASN_TAG, 0, 0},
        {"a SET for a SEQUENCE", dertest::Set({Extension(dertest::OidKeyUsage(), ku6)}), VEXA_ERR_ASN_LIST, 0, 0},
        {"no entries", Seq({}), VEXA_OK, 0, 0},
    };
    for (const auto &c : cases) {
        std::unique_ptr<Decoded> run = Decode(kExtItem, c.der);
        EXPECT_EQ(run->code, c.code) << c.name;
        if (c.code == VEXA_OK) {
            EXPECT_EQ(run->As<ExtRecord>().keyUsage, c.keyUsage) << c.name;
            EXPECT_EQ(run->As<ExtRecord>().ca, c.ca) << c.name;
            EXPECT_EQ(run->consumed, c.der.size()) << c.name;
        }
    }
}

TEST(TemplateAttrs, ReadsAttributesAsTypeAndSetOfValues)
{
    const Bytes messageDigestOid = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x04};
    const Bytes contentTypeOid = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x03};
    const Bytes digest(32, 0x5A);
    const Bytes der = dertest::Set({Seq({dertest::Oid(contentTypeOid), dertest::Set({dertest::Oid({0x01})})}),
                                    Seq({dertest::Oid(messageDigestOid), dertest::Set({dertest::Octets(digest)})})});
    std::unique_ptr<Decoded> run = Decode(g_itemVexaPkcs7SignedAttrs, der);
    ASSERT_EQ(run->code, VEXA_OK);
    EXPECT_EQ(ViewBytes(run->As<VexaPkcs7SignedAttrs>().messageDigest), digest);
}

TEST(TemplateBitsToInt, TakesKeyUsageOctetsAsEncoded)
{
    const struct {
        const char *name;
        Bytes der;
        uint32_t code;
        uint32_t value;
        const char *message;
    } cases[] = {
        {"keyCertSign and cRLSign", {0x03, 0x02, 0x01, 0x06}, VEXA_OK, 6, nullptr},
        {"digitalSignature", {0x03, 0x02, 0x07, 0x80}, VEXA_OK, 0x80, nullptr},
        {"two value octets", {0x03, 0x03, 0x07, 0x06, 0x80}, VEXA_OK, 0x0680, nullptr},
        {"three value octets", {0x03, 0x04, 0x00, 0x01, 0x02, 0x03}, VEXA_ERR_ASN_BITS, 0, "unsupported length count"},
        {"no value octet", {0x03, 0x01, 0x00}, VEXA_ERR_ASN_BITS, 0, "Decode bits to intger failed."},
        {"not a BIT STRING", {0x04, 0x01, 0x06}, VEXA_ERR_ASN_TAG, 0, nullptr},
    };
    for (const auto &c : cases) {
        Records().clear();
        VexaLogSetObserver(logtest::Observe);
        std::unique_ptr<Decoded> run = Decode(g_itemVexaX509KeyUsage, c.der);
        VexaLogSetObserver(nullptr);
        EXPECT_EQ(run->code, c.code) << c.name;
        if (c.code == VEXA_OK) {
            EXPECT_EQ(run->As<uint32_t>(), c.value) << c.name;
        }
        if (c.message != nullptr) {
            EXPECT_TRUE(logtest::HasRecord("VexaBitsToInt", VEXA_ERR_ASN_BITS, c.message)) << c.name;
        }
    }
}

TEST(TemplateExtKeyUsage, OnlyTheFirstPurposeCounts)
{
    using dertest::Oid;
    Bytes eleven;
    for (int i = 0; i < 11; i++) {
        eleven = Cat({eleven, Oid(dertest::OidCodeSigning())});
    }
    const struct {
        const char *name;
        Bytes der;
        uint32_t code;
        uint32_t value;
    } cases[] = {
        {"code signing", Seq({Oid(dertest::OidCodeSigning())}), VEXA_OK, 0x08},
        {"time stamping", Seq({Oid(dertest::OidTimeStamping())}), VEXA_OK, 0x40},
        {"code signing first", Seq({Oid(dertest::OidCodeSigning()), Oid(dertest::OidServerAuth())}), VEXA_OK, 0x08},
        {"server auth first", Seq({Oid(dertest::OidServerAuth()), Oid(dertest::OidCodeSigning())}), VEXA_OK, 0},
        {"time stamping second", Seq({Oid(dertest::OidCodeSigning()), Oid(dertest::OidTimeStamping())}), VEXA_OK,
         0x08},
        {"no purpose", Seq({}), VEXA_OK, 0},
        {"eleven purposes", Tlv(0x30, eleven), VEXA_ERR_ASN_LIST, 0},
        {"not a SEQUENCE", dertest::Set({Oid(dertest::OidCodeSigning())}), VEXA_ERR_ASN_LIST, 0},
    };
    for (const auto &c : cases) {
        std::unique_ptr<Decoded> run = Decode(g_itemVexaX509ExtKeyUsage, c.der);
        EXPECT_EQ(run->code, c.code) << c.name;
        if (c.code == VEXA_OK) {
            EXPECT_EQ(run->As<uint32_t>(), c.value) << c.name;
        }
    }
}

TEST(TemplateEntry, RefusesWhatItCannotDecode)
{
    const Bytes der = Seq({A(1)});
    void *record = reinterpret_cast<void *>(0x1);
    uint32_t consumed = 0;
    EXPECT_EQ(VexaAsnDecodeItem(nullptr, 3, &kSeqItem, 0, &record, &consumed), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnDecodeItem(der.data(), 0, &kSeqItem, 0, &record, &consumed), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnDecodeItem(der.data(), 5, nullptr, 0, &record, &consumed), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnDecodeItem(der.data(), 5, &kSeqItem, 0, nullptr, &consumed), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnDecodeItem(der.data(), 5, &kSeqItem, 0, &record, nullptr), VEXA_ERR_PARAM);
    const VexaAsnItem noDecoder{nullptr, nullptr, 0, 1, 16, 0, 4};
    EXPECT_EQ(VexaAsnDecodeItem(der.data(), 5, &noDecoder, 0, &record, &consumed), VEXA_ERR_ASN_NO_DECODER);
    EXPECT_EQ(record, reinterpret_cast<void *>(0x1)) << "record out untouched on failure";
}

TEST(TemplateEntry, LengthsPast2GiBStayUnsigned)
{
    /* a sparse mapping: only the header page is ever touched */
    const uint32_t content = 0x90000000u;
    const size_t size = static_cast<size_t>(content) + 6;
    void *map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    uint8_t *der = static_cast<uint8_t *>(map);
    const uint8_t header[] = {0x04, 0x84, 0x90, 0x00, 0x00, 0x00};
    std::copy(header, header + sizeof header, der);
    void *record = nullptr;
    uint32_t consumed = 0;
    EXPECT_EQ(VexaAsnDecodeItem(der, static_cast<uint32_t>(size), &g_itemVexaAsnOcts, 0, &record, &consumed), VEXA_OK);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(static_cast<VexaAsnOcts *>(record)->len, content);
    EXPECT_EQ(consumed, static_cast<uint32_t>(size));
    VexaFree(record);
    record = nullptr;
    /* one byte short: refused, never wrapped */
    EXPECT_EQ(VexaAsnDecodeItem(der, static_cast<uint32_t>(size - 1), &g_itemVexaAsnOcts, 0, &record, &consumed),
              VEXA_ERR_ASN_LENGTH);
    munmap(map, size);
}

/* Every template the library holds keeps each write inside its record:
 * members inside their parent, list slots inside the list record, and leaf
 * items sized for what their decoder writes. */
void CheckItem(const VexaAsnItem *item, std::set<const VexaAsnItem *> &seen, const std::string &path)
{
    if (!seen.insert(item).second) {
        return;
    }
    ASSERT_NE(item->decoder, nullptr) << path;
    ASSERT_NE(item->size, 0u) << path;
    const VexaAsnDecodeFn d = item->decoder;
    if (d == VexaAsnDecodeOcts || d == VexaAsnDecodeBits) {
        EXPECT_EQ(item->size, sizeof(VexaAsnOcts)) << path;
        return;
    }
    if (d == VexaDecodeInt || d == VexaBitsToInt || d == VexaAsnDecodeExtKeyUsage) {
        EXPECT_EQ(item->size, sizeof(uint32_t)) << path;
        return;
    }
    ASSERT_NE(item->members, nullptr) << path;
    if (d == VexaAsnDecodeList) {
        ASSERT_EQ(item->memberCount, 1u) << path;
        const VexaAsnMember &e = item->members[0];
        EXPECT_GE(e.offset, sizeof(uint32_t)) << path;
        EXPECT_LE(e.offset + static_cast<uint64_t>(e.maxCount) * e.item->size, item->size) << path;
        EXPECT_GT(e.maxCount, 0u) << path;
        CheckItem(e.item, seen, path + "[]");
        return;
    }
    for (uint32_t i = 0; i < item->memberCount; i++) {
        const VexaAsnMember &m = item->members[i];
        ASSERT_NE(m.item, nullptr) << path << "." << i;
        if ((m.flags & VEXA_ASN_SKIP) == 0) {
            EXPECT_LE(m.offset + static_cast<uint64_t>(m.item->size), item->size) << path << "." << i;
        } else {
            const VexaAsnDecodeFn md = m.item->decoder;
            EXPECT_TRUE(md == VexaAsnDecodeOcts || md == VexaAsnDecodeBits || md == VexaDecodeInt)
                << path << "." << i << ": only primitive members may skip";
        }
        CheckItem(m.item, seen, path + "." + std::to_string(i));
    }
}

TEST(TemplateTables, EveryWriteStaysInsideItsRecord)
{
    std::set<const VexaAsnItem *> seen;
    const struct {
        const char *name;
        const VexaAsnItem *item;
    } roots[] = {
        {"Cert", &g_itemVexaX509Cert},           {"Crl", &g_itemVexaX509Crl},
        {"Pkcs7Content", &g_itemVexaPkcs7Content}, {"TimestampInfo", &g_itemVexaTimestampInfo},
        {"ExtensionEntry", &g_itemVexaX509ExtensionEntry}, {"OidBundle", &g_itemVexaAsnOidBundle},
        {"Octs", &g_itemVexaAsnOcts},
    };
    for (const auto &r : roots) {
        CheckItem(r.item, seen, r.name);
    }
    EXPECT_GT(seen.size(), 30u);
    for (uint32_t i = 0; i < VEXA_ASN_DECODER_KINDS; i++) {
        EXPECT_NE(g_vexaAsnDecoderTable[i], nullptr);
    }
    EXPECT_EQ(g_vexaAsnDecoderTable[2], VexaAsnDecodeSeq);
    EXPECT_EQ(g_vexaAsnDecoderTable[7], VexaAsnDecodeExtKeyUsage);
}

} // namespace
