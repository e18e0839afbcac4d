// SPDX-License-Identifier: Apache-2.0
/* forge normalize: re-encodes a BER CMS signature (indefinite lengths,
 * lengths in more octets than needed, chunked OCTET STRINGs, unsorted SET
 * OFs), as NSS, gpgsm or BouncyCastle write it, as DER, without changing a
 * signed byte. The parts whose bytes a signature covers (signed attributes,
 * certificates, CRLs, a time-stamp token's TSTInfo) must already be DER:
 * re-encoding them would break their signature, so such an input is refused
 * with the part named rather than written out unverifiable. */
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "forge.h"

namespace forge {

namespace {

using Parser = BerParser;

bool Refuse(Parser *p, size_t at, const char *what)
{
    return BerRefuse(p, at, what);
}

bool ConcatOctets(Parser *p, const BerNode &node, Bytes *out)
{
    for (const BerNode &c : node.children) {
        if (c.tag.size() != 1 || (c.tag[0] & 0xDF) != 0x04) {
            return Refuse(p, c.start, "a chunked OCTET STRING holds something else");
        }
        if (c.constructed) {
            if (!ConcatOctets(p, c, out)) {
                return false;
            }
        } else {
            out->insert(out->end(), p->in.begin() + static_cast<long>(c.contentStart),
                        p->in.begin() + static_cast<long>(c.contentEnd));
        }
    }
    return true;
}

/* DER for the element: minimal definite lengths, chunked OCTET STRINGs
 * joined, SET OF members in DER order. Primitive content is kept as it is. */
bool EncodeDer(Parser *p, const BerNode &node, Bytes *out)
{
    Bytes content;
    Bytes tag = node.tag;
    if (!node.constructed) {
        content.assign(p->in.begin() + static_cast<long>(node.contentStart),
                       p->in.begin() + static_cast<long>(node.contentEnd));
    } else if (tag.size() == 1 && tag[0] == 0x24) {
        if (!ConcatOctets(p, node, &content)) {
            return false;
        }
        tag[0] = 0x04;
    } else if (tag.size() == 1 && tag[0] >= 0x23 && tag[0] <= 0x3E && tag[0] != 0x30 && tag[0] != 0x31) {
        return Refuse(p, node.start, "a constructed string other than OCTET STRING");
    } else {
        std::vector<Bytes> members;
        for (const BerNode &c : node.children) {
            Bytes der;
            if (!EncodeDer(p, c, &der)) {
                return false;
            }
            members.push_back(std::move(der));
        }
        if (tag.size() == 1 && tag[0] == 0x31) {
            std::sort(members.begin(), members.end());
        }
        for (const Bytes &m : members) {
            content.insert(content.end(), m.begin(), m.end());
        }
    }
    out->insert(out->end(), tag.begin(), tag.end());
    DerAppendLength(*out, content.size());
    out->insert(out->end(), content.begin(), content.end());
    return true;
}

bool IsDer(Parser *p, const BerNode &node)
{
    Bytes der;
    return EncodeDer(p, node, &der) && der.size() == node.end - node.start &&
           std::equal(der.begin(), der.end(), p->in.begin() + static_cast<long>(node.start));
}

bool RequireDer(Parser *p, const BerNode &node, const char *part)
{
    if (IsDer(p, node)) {
        return true;
    }
    p->why.clear();
    p->signedPart = true;
    return Refuse(p, node.start, part);
}

const BerNode *Child(const BerNode &node, uint8_t tag, size_t skip = 0)
{
    for (const BerNode &c : node.children) {
        if (c.tag.size() == 1 && c.tag[0] == tag && skip-- == 0) {
            return &c;
        }
    }
    return nullptr;
}

bool OidIs(const Parser &p, const BerNode *node, const Bytes &oid)
{
    return node != nullptr && !node->constructed && node->tag.size() == 1 && node->tag[0] == 0x06 &&
           node->contentEnd - node->contentStart == oid.size() &&
           std::equal(oid.begin(), oid.end(), p.in.begin() + static_cast<long>(node->contentStart));
}

const Bytes kOidSignedData = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
const Bytes kOidTimeStampToken = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x10, 0x02, 0x0E};

bool CheckSignedParts(Parser *p, const BerNode &contentInfo, bool token, int depth);

/* The eContent of a token: the TSTInfo the TSA signed. Its octets are what
 * the signature covers (a chunked OCTET STRING's chunks joined), so they
 * must already be DER, since checktool reads DER only. */
bool CheckTstInfo(Parser *p, const BerNode &signedData)
{
    const BerNode *encap = Child(signedData, 0x30);
    const BerNode *explicit0 = encap != nullptr ? Child(*encap, 0xA0) : nullptr;
    if (explicit0 == nullptr || explicit0->children.size() != 1) {
        return true; /* detached: nothing signed inside */
    }
    const BerNode &octets = explicit0->children[0];
    Bytes value;
    if (octets.constructed) {
        if (!ConcatOctets(p, octets, &value)) {
            return false;
        }
    } else {
        value.assign(p->in.begin() + static_cast<long>(octets.contentStart),
                     p->in.begin() + static_cast<long>(octets.contentEnd));
    }
    Parser inner{value, {}, 0, false};
    BerNode tst;
    if (!ParseBer(&inner, 0, value.size(), 0, &tst) || tst.end != value.size() || !IsDer(&inner, tst)) {
        p->signedPart = true;
        return Refuse(p, octets.start, "the time-stamp token's TSTInfo is not DER");
    }
    return true;
}

bool CheckSignerInfo(Parser *p, const BerNode &signerInfo, bool token, int depth)
{
    const BerNode *signedAttrs = Child(signerInfo, 0xA0);
    if (signedAttrs != nullptr &&
        !RequireDer(p, *signedAttrs, token ? "the time-stamp token's signed attributes are not DER"
                                           : "the signer's signed attributes are not DER")) {
        return false;
    }
    const BerNode *unsignedAttrs = Child(signerInfo, 0xA1);
    if (token || unsignedAttrs == nullptr) {
        return true;
    }
    for (const BerNode &attr : unsignedAttrs->children) {
        if (attr.children.size() != 2 || !OidIs(*p, &attr.children[0], kOidTimeStampToken)) {
            continue;
        }
        for (const BerNode &value : attr.children[1].children) {
            if (!CheckSignedParts(p, value, true, depth + 1)) {
                return false;
            }
        }
    }
    return true;
}

/* Walks a ContentInfo holding a SignedData to the parts a signature covers. */
bool CheckSignedParts(Parser *p, const BerNode &contentInfo, bool token, int depth)
{
    if (depth > 2 || contentInfo.children.size() != 2 || !OidIs(*p, &contentInfo.children[0], kOidSignedData) ||
        contentInfo.children[1].children.size() != 1) {
        return Refuse(p, contentInfo.start, token ? "a time-stamp token that is no SignedData"
                                                  : "not a CMS SignedData");
    }
    const BerNode &signedData = contentInfo.children[1].children[0];
    for (uint8_t tag : {static_cast<uint8_t>(0xA0), static_cast<uint8_t>(0xA1)}) {
        if (const BerNode *list = Child(signedData, tag)) {
            for (const BerNode &item : list->children) {
                if (!RequireDer(p, item, tag == 0xA0 ? "an embedded certificate is not DER"
                                                     : "an embedded CRL is not DER")) {
                    return false;
                }
            }
        }
    }
    if (token && !CheckTstInfo(p, signedData)) {
        return false;
    }
    const BerNode *signerInfos = nullptr;
    for (const BerNode &c : signedData.children) {
        if (c.tag.size() == 1 && c.tag[0] == 0x31) {
            signerInfos = &c; /* the last SET: digestAlgorithms comes first */
        }
    }
    if (signerInfos == nullptr) {
        return Refuse(p, signedData.start, "a SignedData without signerInfos");
    }
    for (const BerNode &signerInfo : signerInfos->children) {
        if (!CheckSignerInfo(p, signerInfo, token, depth)) {
            return false;
        }
    }
    return true;
}

const OptSpec kNormalizeOpts[] = {
    {"in", "FILE", "the signature: BER or DER, or PEM under any label"},
    {"out", "FILE", "where the DER signature goes (written only when every signed part is DER)"},
};

} // namespace

uint32_t RunNormalize(const Args &args)
{
    const std::string *inPath = nullptr;
    const std::string *outPath = nullptr;
    uint32_t rc = RequireOpt(args, "in", &inPath);
    if (rc == kOk) {
        rc = RequireOpt(args, "out", &outPath);
    }
    Bytes data;
    if (rc == kOk) {
        rc = ReadFile(*inPath, &data);
    }
    if (rc != kOk) {
        return rc;
    }
    if (LooksLikePem(data)) {
        std::vector<PemBlock> blocks;
        if (PemBlocks(data, &blocks) != kOk || blocks.empty()) {
            Fail("normalize: %s has no PEM block", inPath->c_str());
            return kErrInput;
        }
        data = blocks[0].der;
    }
    Parser p{data, {}, 0, false};
    BerNode root;
    Bytes der;
    bool ok = ParseBer(&p, 0, data.size(), 0, &root);
    if (ok && root.end != data.size()) {
        ok = Refuse(&p, root.end, "bytes after the signature");
    }
    ok = ok && CheckSignedParts(&p, root, false, 0) && EncodeDer(&p, root, &der);
    if (!ok && p.signedPart) {
        Fail("normalize: %s: %s (byte offset %zu); re-encoding it would break its signature, so nothing "
             "was written: ask the signing tool for DER there",
             inPath->c_str(), p.why.c_str(), p.whyAt);
        return kErrInput;
    }
    if (!ok) {
        Fail("normalize: %s is not a CMS signature in BER: %s (byte offset %zu); nothing was written",
             inPath->c_str(), p.why.c_str(), p.whyAt);
        return kErrInput;
    }
    return WriteFile(*outPath, der);
}

const Command kNormalizeCommand = {
    "normalize",
    "--in SIG --out SIG.der",
    "Re-encodes a BER CMS signature (indefinite or long-form lengths, chunked OCTET STRINGs,\n"
    "unsorted SET OFs), as other signing tools write it, as the DER checktool reads, without\n"
    "changing a signed byte. Refuses, writing nothing, when a signed part (signed attributes,\n"
    "an embedded certificate or CRL, a time-stamp token's TSTInfo) is not DER itself.",
    kNormalizeOpts,
    sizeof(kNormalizeOpts) / sizeof(kNormalizeOpts[0]),
    RunNormalize,
};

} // namespace forge
