// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <sys/mman.h>

#include <string>

#include "asn1/asn1_items.h"
#include "tests/asn1/der_builder.h"
#include "tests/asn1/log_capture.h"
#include "vexa/vexa_log.h"
#include "vexa/vexa_result.h"
#include "vexa/vexa_services.h"

namespace {

using namespace dertest;

/* A decoded record; its input is a copy of exactly the DER's size, so a
 * read one byte past it is caught by the address sanitizer. */
struct Decoded {
    Bytes input;
    void *record = nullptr;
    uint32_t consumed = 0;
    uint32_t code;
    Decoded(const VexaAsnItem &item, const Bytes &der)
        : input(der), code(VexaAsnDecodeItem(input.data(), static_cast<uint32_t>(input.size()), &item, 0, &record,
                                             &consumed))
    {
        if (code != VEXA_OK) {
            EXPECT_EQ(record, nullptr) << "no record on failure";
        }
    }
    ~Decoded() { VexaFree(record); }
    template <class T> const T &As() const { return *static_cast<const T *>(record); }
};

TEST(TemplatePrimitives, DecodeOnlyTheirOwnTagsAndCommitTheCursorOnlyOnSuccess)
{
    const VexaAsnMember bigInt = InternalField(g_itemVexaAsnBigInt, 0);
    const VexaAsnMember octs = InternalField(g_itemVexaAsnOcts, 0);
    const VexaAsnMember whole = InternalField(g_itemVexaAsnOcts, 0, kWhole);
    const VexaAsnMember implicit0 = InternalImplicit(0, g_itemVexaAsnOcts, 0);
    const VexaAsnMember bits = InternalField(g_itemVexaAsnBits, 0);
    const VexaAsnMember bits3 = InternalImplicit(3, g_itemVexaAsnBits, 0);
    const VexaAsnMember int32 = InternalField(g_itemVexaAsnInt, 0);
    const VexaAsnMember enumerated = InternalField(g_itemVexaAsnEnum, 0);
    const VexaAsnMember boolean = InternalField(g_itemVexaAsnBool, 0);
    const VexaAsnMember keyUsage = InternalField(g_itemVexaX509KeyUsage, 0);
    const VexaAsnMember eku = InternalField(g_itemVexaX509ExtKeyUsage, 0);
    const Bytes cs = Oid(OidCodeSigning());
    const Bytes long128 = Tlv(0x04, Bytes(128, 0x11));
    const Bytes body256(256, 0xAB);
    const Bytes five = {0x02, 0x05, 0x80, 0x00, 0x00, 0x00, 0x01};
    constexpr uint32_t kUntouched = 0xEEEEEEEEu;
    /* out: the value of an integer, or the identifier octet a view records */
    const struct { const char *name; VexaAsnMember member; Bytes der; uint32_t code; Bytes value; uint32_t out; } cases[] = {
        {"sign octet of an INTEGER dropped", bigInt, {0x02, 0x02, 0x00, 0xFF}, VEXA_OK, {0xFF}, 0x02},
        {"only one zero octet dropped", bigInt, {0x02, 0x03, 0x00, 0x00, 0x01}, VEXA_OK, {0x00, 0x01}, 0x02},
        {"negative INTEGER kept as is", bigInt, {0x02, 0x02, 0xFF, 0x01}, VEXA_OK, {0xFF, 0x01}, 0x02},
        {"INTEGER zero has no value octets", bigInt, {0x02, 0x01, 0x00}, VEXA_OK, {}, 0x02},
        {"zero dropped under any class with number 2", InternalImplicit(2, g_itemVexaAsnOcts, 0),
         {0x82, 0x02, 0x00, 0x05}, VEXA_OK, {0x05}, 0x82},
        {"OCTET STRING keeps its zero", octs, {0x04, 0x02, 0x00, 0x05}, VEXA_OK, {0x00, 0x05}, 0x04},
        {"WHOLE covers identifier and length", whole, {0x04, 0x02, 0xAA, 0xBB}, VEXA_OK, {0x04, 0x02, 0xAA, 0xBB}, 4},
        {"WHOLE keeps the sign octet", InternalField(g_itemVexaAsnBigInt, 0, kWhole), {0x02, 0x02, 0x00, 0xFF},
         VEXA_OK, {0x02, 0x02, 0x00, 0xFF}, 0x02},
        {"WHOLE with a long-form length", whole, long128, VEXA_OK, long128, 0x04},
        {"empty content leaves the view empty even under WHOLE", whole, Null(), VEXA_OK, {}, 0},
        {"length past the content", octs, {0x04, 0x04, 1, 2, 3}, VEXA_ERR_ASN_LENGTH, {}, 0},
        {"non-minimal long-form length", octs, {0x04, 0x81, 0x02, 9, 9}, VEXA_OK, {9, 9}, 0x04},
        {"four length octets", octs, Cat({{0x04, 0x84, 0, 0, 1, 0}, body256}), VEXA_OK, body256, 0x04},
        {"four length octets, one byte short", octs, Cat({{0x04, 0x84, 0, 0, 1, 0}, Bytes(255, 0xAB)}),
         VEXA_ERR_ASN_LENGTH, {}, 0},
        {"five length octets", octs, Cat({{0x04, 0x85, 0, 0, 0, 1, 0}, body256}), VEXA_ERR_ASN_LENGTH, {}, 0},
        {"a length near 4 GiB", octs, {0x04, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 1}, VEXA_ERR_ASN_LENGTH, {}, 0},
        {"length octets cut off", octs, {0x04, 0x82, 0x01}, VEXA_ERR_BUFFER_END, {}, 0},
        {"any class, form and number", octs, {0xA5, 0x01, 0x07}, VEXA_OK, {0x07}, 0xA5},
        {"the highest one-octet tag number", octs, {0xDE, 0x01, 0x07}, VEXA_OK, {0x07}, 0xDE},
        {"high-tag-number form", octs, {0xBF, 0x01, 0x07}, VEXA_ERR_ASN_TAG, {}, 0},
        {"IMPLICIT leaves the form open for an any-form item", implicit0, {0xA0, 0x01, 0xFF}, VEXA_OK, {0xFF}, 0xA0},
        {"universal INTEGER item refuses OCTET STRING", bigInt, {0x04, 0x01, 0x01}, VEXA_ERR_ASN_OCTS_TAG, {}, 0},
        {"SEQUENCE item refuses a primitive 16", InternalField(g_itemVexaAsnSeqRaw, 0), {0x10, 0x00},
         VEXA_ERR_ASN_OCTS_TAG, {}, 0},
        {"IMPLICIT fixes the number of an any-tag item", implicit0, {0x81, 0x01, 0xFF}, VEXA_ERR_ASN_OCTS_TAG, {}, 0},
        {"IMPLICIT fixes the class", implicit0, {0x00, 0x01, 0xFF}, VEXA_ERR_ASN_OCTS_TAG, {}, 0},
        {"BIT STRING value after the unused-bits count", bits, {0x03, 0x02, 0x07, 0x80}, VEXA_OK, {0x80}, 0x03},
        {"BIT STRING of only the unused-bits octet", bits, {0x03, 0x01, 0x00}, VEXA_OK, {}, 0x03},
        {"BIT STRING without content", bits, {0x03, 0x00}, VEXA_ERR_ASN_BITS, {}, 0},
        {"constructed BIT STRING", bits, {0x23, 0x03, 0x03, 0x01, 0x00}, VEXA_ERR_ASN_TAG, {}, 0},
        {"implicitly tagged BIT STRING", bits3, {0x83, 0x02, 0x01, 0x86}, VEXA_OK, {0x86}, 0x83},
        {"universal BIT STRING where a tag is expected", bits3, {0x03, 0x02, 0x01, 0x86}, VEXA_ERR_ASN_TAG, {}, 0},
        {"SKIP steps over a BIT STRING", InternalField(g_itemVexaAsnBits, 0, kSkip), {0x03, 0x03, 0x00, 0x01, 0x02},
         VEXA_OK, {}, 0},
        {"INTEGER of one octet", int32, {0x02, 0x01, 0x05}, VEXA_OK, {}, 5},
        {"minus one is sign-extended", int32, {0x02, 0x01, 0xFF}, VEXA_OK, {}, 0xFFFFFFFFu},
        {"sign octet then 0x80", int32, {0x02, 0x02, 0x00, 0x80}, VEXA_OK, {}, 128},
        {"INTEGER of four octets", int32, {0x02, 0x04, 0x7F, 0xFF, 0xFF, 0xFE}, VEXA_OK, {}, 0x7FFFFFFEu},
        {"INTEGER of five octets", int32, five, VEXA_ERR_ASN_INT, {}, 0},
        {"INTEGER of five octets skipped", InternalField(g_itemVexaAsnInt, 0, kSkip), five, VEXA_OK, {}, kUntouched},
        {"empty INTEGER", int32, {0x02, 0x00}, VEXA_ERR_ASN_INT, {}, 0},
        {"constructed INTEGER", int32, {0x22, 0x01, 0x05}, VEXA_ERR_ASN_TAG, {}, 0},
        {"member without an item never matches", {nullptr, 0, 0, 0, 0, 0}, {0x02, 0x01, 0x05}, VEXA_ERR_ASN_TAG, {}, 0},
        {"ENUMERATED", enumerated, {0x0A, 0x01, 0x04}, VEXA_OK, {}, 4},
        {"INTEGER where ENUMERATED is expected", enumerated, {0x02, 0x01, 0x04}, VEXA_ERR_ASN_TAG, {}, 0},
        {"TRUE", boolean, {0x01, 0x01, 0xFF}, VEXA_OK, {}, 1},
        {"BOOLEAN other than 0xFF is false", boolean, {0x01, 0x01, 0x01}, VEXA_OK, {}, 0},
        {"BOOLEAN of two octets", boolean, {0x01, 0x02, 0xFF, 0xFF}, VEXA_ERR_ASN_BOOL, {}, 0},
        {"BOOLEAN of five octets", boolean, {0x01, 0x05, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, VEXA_ERR_ASN_INT, {}, 0},
        {"implicitly tagged BOOLEAN of two octets", InternalImplicit(4, g_itemVexaAsnBool, 0),
         {0x84, 0x02, 0xFF, 0xFF}, VEXA_ERR_ASN_BOOL, {}, 0},
        {"key usage keyCertSign and cRLSign, as encoded", keyUsage, {0x03, 0x02, 0x01, 0x06}, VEXA_OK, {}, 6},
        {"key usage of two value octets", keyUsage, {0x03, 0x03, 0x07, 0x06, 0x80}, VEXA_OK, {}, 0x0680},
        {"key usage that is no BIT STRING", keyUsage, {0x04, 0x01, 0x06}, VEXA_ERR_ASN_TAG, {}, 0},
        /* which purpose counts is pinned by the scenarios */
        {"no purpose", eku, Seq({}), VEXA_OK, {}, kUntouched},
        {"eleven purposes", eku, Seq({cs, cs, cs, cs, cs, cs, cs, cs, cs, cs, cs}), VEXA_ERR_ASN_LIST, {}, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const VexaAsnDecodeFn decode = c.member.item != nullptr ? c.member.item->decoder : VexaDecodeInt;
        const bool isView = decode == VexaAsnDecodeOcts || decode == VexaAsnDecodeBits;
        const Bytes input = c.der;
        VexaAsnStream s{};
        ASSERT_EQ(VexaAsnStreamInit(&s, input.data(), static_cast<uint32_t>(input.size())), VEXA_OK);
        VexaAsnOcts view{};
        uint32_t value = kUntouched;
        uint32_t consumed = 0;
        EXPECT_EQ(decode(&s, isView ? static_cast<void *>(&view) : &value, &consumed, &c.member), c.code);
        EXPECT_EQ(s.pos, c.code == VEXA_OK ? input.size() : 0u) << "the cursor moves only on success";
        EXPECT_TRUE(c.code != VEXA_OK || consumed == input.size()) << consumed;
        EXPECT_EQ(value, isView || c.code != VEXA_OK ? kUntouched : c.out) << "nothing written on failure";
        EXPECT_EQ(View(view), c.value);
        EXPECT_EQ(view.len, c.value.size());
        EXPECT_EQ(view.tagClass << 6 | view.constructed << 5 | view.tagNumber, isView ? c.out : 0u);
        if (!c.value.empty()) {
            EXPECT_TRUE(view.data >= input.data() && view.data + view.len <= input.data() + input.size())
                << "a view into the input, not a copy";
        }
    }
}

class TemplateDiagnostics : public logtest::Captured {};

TEST_F(TemplateDiagnostics, RefusalsAndMissingDestinationsAreLoggedUnderTheirDecoder)
{
    EXPECT_EQ(Decoded(g_itemVexaX509KeyUsage, {0x03, 0x04, 0x00, 0x01, 0x02, 0x03}).code, VEXA_ERR_ASN_BITS);
    EXPECT_TRUE(logtest::HasRecord("VexaBitsToInt", VEXA_ERR_ASN_BITS, "unsupported length count"));
    EXPECT_EQ(Decoded(g_itemVexaX509KeyUsage, {0x03, 0x01, 0x00}).code, VEXA_ERR_ASN_BITS);
    EXPECT_TRUE(logtest::HasRecord("VexaBitsToInt", VEXA_ERR_ASN_BITS, "Decode bits to intger failed."));
    const Bytes der = {0x02, 0x01, 0x05};
    VexaAsnStream s{};
    ASSERT_EQ(VexaAsnStreamInit(&s, der.data(), 3), VEXA_OK);
    const VexaAsnMember int32 = InternalField(g_itemVexaAsnInt, 0);
    const VexaAsnMember octs = InternalField(g_itemVexaAsnOcts, 0);
    uint32_t consumed = 0;
    EXPECT_EQ(VexaDecodeInt(&s, nullptr, &consumed, &int32), VEXA_ERR_ASN_INT);
    EXPECT_TRUE(logtest::HasRecord("VexaDecodeInt", VEXA_ERR_ASN_INT, ""));
    EXPECT_EQ(VexaAsnDecodeOcts(&s, nullptr, &consumed, &octs), VEXA_ERR_PARAM) << "no destination without SKIP";
    logtest::Records().clear();
    EXPECT_EQ(Decoded(g_itemVexaAsnOcts, {0x04, 0x80, 0x00, 0x00}).code, VEXA_ERR_ASN_LENGTH);
    ASSERT_FALSE(logtest::Records().empty());
    EXPECT_EQ(logtest::Records()[0].message, "indefinit length not supported.");
    EXPECT_EQ(logtest::Records()[0].level, VEXA_LOG_WARNING) << "input the decoder does not support is no error";
}

/* SEQUENCE { a INTEGER, b INTEGER-as-octets OPTIONAL, c [1] EXPLICIT INTEGER
 * DEFAULT, d BOOLEAN OPTIONAL SKIP } */
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

TEST(TemplateSeq, DecodesMembersInOrderAndRefusesLeftovers)
{
    const Bytes a = Int({1});
    const Bytes c = Explicit(1, Int({3}));
    const struct { const char *name; Bytes der; uint32_t code; uint32_t a; Bytes b; uint32_t c; } cases[] = {
        {"every member", Seq({a, Int({0x00, 0x82}), c, Bool(true)}), VEXA_OK, 1, {0x82}, 3},
        {"optional members missing at the end", Seq({a}), VEXA_OK, 1, {}, 0},
        {"optional member missing in the middle", Seq({a, c}), VEXA_OK, 1, {}, 3},
        {"extra trailing element", Seq({a, Int({2}), c, Bool(true), Null()}), VEXA_ERR_ASN_SEQ, 0, {}, 0},
        {"element no member takes", Seq({a, Null()}), VEXA_ERR_ASN_SEQ, 0, {}, 0},
        {"required member missing", Seq({}), VEXA_ERR_ASN_SEQ, 0, {}, 0},
        {"explicit wrapper with a stray byte inside", Seq({a, Tlv(0xA1, Cat({Int({3}), {0x00}}))}), VEXA_ERR_ASN_SEQ,
         0, {}, 0},
        {"optional member that fails to decode leaves its bytes", Seq({a, Tlv(0xA1, Tlv(0x02, {}))}),
         VEXA_ERR_ASN_SEQ, 0, {}, 0},
        {"member longer than its SEQUENCE", {0x30, 0x03, 0x02, 0x05, 0x01, 0x02, 0x03, 0x04, 0x05}, VEXA_ERR_ASN_LENGTH,
         0, {}, 0},
        {"a SET is not a SEQUENCE", Set({a}), VEXA_ERR_ASN_TAG, 0, {}, 0},
    };
    for (const auto &t : cases) {
        SCOPED_TRACE(t.name);
        /* bytes after the top-level element are the caller's; a failed or
         * absent member leaves the cursor, or the rows after it would fail */
        const Decoded run(kSeqItem, Cat({t.der, {0xDE, 0xAD}}));
        EXPECT_EQ(run.code, t.code);
        if (t.code == VEXA_OK) {
            const SeqRecord &r = run.As<SeqRecord>();
            EXPECT_EQ(r.a, t.a);
            EXPECT_EQ(View(r.b), t.b);
            EXPECT_EQ(r.b.tagNumber, t.b.empty() ? 0u : 2u) << "an absent view is all zero";
            EXPECT_EQ(r.c, t.c);
            EXPECT_EQ(run.consumed, t.der.size());
        }
    }
}

TEST_F(TemplateDiagnostics, AbsentOptionalMembersLeaveNoRecordsAndFailuresLeaveAChain)
{
    EXPECT_EQ(Decoded(kSeqItem, Seq({Int({1})})).code, VEXA_OK);
    EXPECT_TRUE(logtest::Records().empty());
    /* a member cut short inside: one error record per level, from the length
     * check out to the entry point, each at its own line, the code unchanged */
    EXPECT_EQ(Decoded(kSeqItem, {0x30, 0x03, 0x02, 0x05, 0x01, 0x02, 0x03, 0x04, 0x05}).code, VEXA_ERR_ASN_LENGTH);
    std::string chain;
    for (const logtest::Record &r : logtest::Records()) {
        chain += r.function + (r.message.empty() ? "" : ": " + r.message) + "; ";
        EXPECT_EQ(r.code, VEXA_ERR_ASN_LENGTH) << r.function;
        EXPECT_EQ(r.level, VEXA_LOG_ERROR) << r.function;
        EXPECT_NE(r.line, 0u) << r.function;
    }
    EXPECT_EQ(chain, "InternalDecLen: overflow length.; VexaAsnReadHeader; VexaDecodeInt; InternalDecodeTagged; "
                     "VexaAsnDecodeMember; VexaAsnDecodeSeq; VexaAsnDecodeItem; ");
}

/* A bounded list of whole elements: at most two of three slots fill; and a
 * template whose slots would run past its record. */
struct ListRecord {
    uint32_t count;
    VexaAsnOcts slots[3];
};
const VexaAsnMember kTwoSlots[1] = {InternalSlots(g_itemVexaAsnOcts, offsetof(ListRecord, slots), 2, kWhole)};
const VexaAsnItem kListItem = InternalListItem(kTwoSlots, sizeof(ListRecord), VEXA_ASN_TAG_SEQUENCE);
const VexaAsnMember kTooManySlots[1] = {InternalSlots(g_itemVexaAsnOcts, offsetof(ListRecord, slots), 4)};
const VexaAsnItem kBrokenListItem = InternalListItem(kTooManySlots, sizeof(ListRecord), VEXA_ASN_TAG_SEQUENCE);

TEST(TemplateList, FillsAtMostItsCapacityAndCountsOnlyOnSuccess)
{
    const Bytes e1 = Int({1});
    const Bytes e2 = Octets({2, 2});
    const struct { const char *name; const VexaAsnItem *item; Bytes der; uint32_t code; uint32_t count; } cases[] = {
        {"empty", &kListItem, Seq({}), VEXA_OK, 0},
        {"two of two", &kListItem, Seq({e1, e2}), VEXA_OK, 2},
        {"three for two", &kListItem, Seq({e1, e2, Null()}), VEXA_ERR_ASN_LIST, 0},
        {"element cut short", &kListItem, Cat({{0x30, 0x04}, e1, {0x04, 0x02}}), VEXA_ERR_ASN_LIST, 0},
        {"a SET for a SEQUENCE OF", &kListItem, Set({e1}), VEXA_ERR_ASN_LIST, 0},
        {"slots past the record", &kBrokenListItem, Seq({e1}), VEXA_ERR_ASN_LIST, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const Decoded run(*c.item, c.der);
        EXPECT_EQ(run.code, c.code);
        if (c.code == VEXA_OK) {
            EXPECT_EQ(run.As<ListRecord>().count, c.count);
            EXPECT_EQ(View(run.As<ListRecord>().slots[c.count == 2 ? 1 : 0]), c.count == 2 ? e2 : Bytes())
                << "WHOLE applies to every element";
        }
    }
    const Bytes three = Seq({e1, e1, e1});
    VexaAsnStream s{};
    ASSERT_EQ(VexaAsnStreamInit(&s, three.data(), static_cast<uint32_t>(three.size())), VEXA_OK);
    ListRecord rec{};
    rec.count = 77;
    const VexaAsnMember top = InternalField(kListItem, 0);
    uint32_t consumed = 0;
    EXPECT_EQ(VexaAsnDecodeList(&s, &rec, &consumed, &top), VEXA_ERR_ASN_LIST);
    EXPECT_EQ(rec.count, 77u);
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
    const Bytes ku = {0x55, 0x1D, 0x0F}; /* keyUsage */
    const Bytes ku6 = Tlv(0x03, {0x01, 0x06});
    const Bytes ca = Extension({0x55, 0x1D, 0x13}, Seq({Bool(true)}), true); /* basicConstraints */
    const struct { const char *name; Bytes der; uint32_t code; uint32_t keyUsage; uint32_t ca; } cases[] = {
        {"unknown critical then known", Seq({Extension(OidSubjectKeyId(), Octets({1}), true), Extension(ku, ku6)}),
         VEXA_OK, 6, 0},
        {"both known", Seq({ca, Extension(ku, ku6)}), VEXA_OK, 6, 1},
        {"a later entry overwrites", Seq({Extension(ku, ku6), Extension(ku, Tlv(0x03, {0x07, 0x80}))}), VEXA_OK,
         0x80, 0},
        {"value need not fill the OCTET STRING", Seq({Extension(ku, Cat({ku6, {0x00}}))}), VEXA_OK, 6, 0},
        {"empty value", Seq({Extension(OidSubjectKeyId(), {})}), VEXA_ERR_ASN_LIST, 0, 0},
        {"known value that does not decode", Seq({Extension(ku, Octets({6}))}), VEXA_ERR_ASN_TAG, 0, 0},
        {"value read only inside its OCTET STRING", Seq({Extension(ku, {0x03, 0x03, 0x01, 0x06})}),
         VEXA_ERR_ASN_LENGTH, 0, 0},
        {"entry that is not a SEQUENCE", Seq({Int({1})}), VEXA_ERR_ASN_TAG, 0, 0},
        {"a SET for a SEQUENCE", Set({Extension(ku, ku6)}), VEXA_ERR_ASN_LIST, 0, 0},
        {"no entries", Seq({}), VEXA_OK, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const Decoded run(kExtItem, c.der);
        EXPECT_EQ(run.code, c.code);
        if (c.code == VEXA_OK) {
            EXPECT_EQ(run.As<ExtRecord>().keyUsage, c.keyUsage);
            EXPECT_EQ(run.As<ExtRecord>().ca, c.ca);
            EXPECT_EQ(run.consumed, c.der.size());
        }
    }
}

TEST(TemplateEntry, RefusesWhatItCannotDecodeAndKeepsLengthsPast2GiBUnsigned)
{
    const Bytes der = Seq({Int({1})});
    void *record = reinterpret_cast<void *>(0x1);
    uint32_t consumed = 0;
    EXPECT_EQ(VexaAsnDecodeItem(nullptr, 3, &kSeqItem, 0, &record, &consumed), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnDecodeItem(der.data(), 0, &kSeqItem, 0, &record, &consumed), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnDecodeItem(der.data(), 3, nullptr, 0, &record, &consumed), VEXA_ERR_PARAM);
    EXPECT_EQ(VexaAsnDecodeItem(der.data(), 3, &kSeqItem, 0, nullptr, &consumed), VEXA_ERR_PARAM);
    const VexaAsnItem noDecoder{nullptr, nullptr, 0, 1, 16, 0, 4};
    EXPECT_EQ(VexaAsnDecodeItem(der.data(), 3, &noDecoder, 0, &record, &consumed), VEXA_ERR_ASN_NO_DECODER);
    EXPECT_EQ(record, reinterpret_cast<void *>(0x1)) << "record out untouched on failure";

    /* a sparse mapping: only the header page is ever touched */
    const uint32_t content = 0x90000000u;
    const size_t size = static_cast<size_t>(content) + 6;
    void *map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    uint8_t *big = static_cast<uint8_t *>(map);
    const uint8_t header[] = {0x04, 0x84, 0x90, 0x00, 0x00, 0x00};
    std::copy(header, header + sizeof header, big);
    record = nullptr;
    ASSERT_EQ(VexaAsnDecodeItem(big, static_cast<uint32_t>(size), &g_itemVexaAsnOcts, 0, &record, &consumed), VEXA_OK);
    EXPECT_EQ(static_cast<VexaAsnOcts *>(record)->len, content);
    EXPECT_EQ(consumed, static_cast<uint32_t>(size));
    VexaFree(record);
    EXPECT_EQ(VexaAsnDecodeItem(big, static_cast<uint32_t>(size - 1), &g_itemVexaAsnOcts, 0, &record, &consumed),
              VEXA_ERR_ASN_LENGTH)
        << "one byte short: refused, never wrapped";
    munmap(map, size);
}

} // namespace
