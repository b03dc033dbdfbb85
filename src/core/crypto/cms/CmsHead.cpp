#include "crypto/cms/CmsHead.h"

using namespace Qt::Literals::StringLiterals;

namespace {

using Header = BerReader::Header;
using ObjectPtr = std::unique_ptr<ASN1_OBJECT, nivossl::Free<ASN1_OBJECT_free>>;

// Stand-in tag for reading AuthEnvelopedData before its tag (which follows the content) is read.
constexpr int kPlaceholderTagSize = 16;

// DER length octets for `length`.
QByteArray derLength(qsizetype length) {
    if (length < 0x80) {
        return QByteArray(1, static_cast<char>(length));
    }
    QByteArray octets;
    for (auto rest = static_cast<quint64>(length); rest != 0; rest >>= 8) {
        octets.prepend(static_cast<char>(rest & 0xFF));
    }
    return QByteArray(1, static_cast<char>(0x80 | octets.size())) + octets;
}

QByteArray oidDer(int nid) {
    const ASN1_OBJECT* object = OBJ_nid2obj(nid);
    const int size = i2d_ASN1_OBJECT(object, nullptr);
    QByteArray der(size, '\0');
    auto* out = reinterpret_cast<unsigned char*>(der.data());
    i2d_ASN1_OBJECT(object, &out);
    return der;
}

}  // namespace

bool CmsHead::isEnveloped(int typeNid) noexcept {
    return typeNid == NID_pkcs7_enveloped || typeNid == NID_id_smime_ct_authEnvelopedData;
}

QByteArray CmsHead::readContentType(BerReader& reader) {
    const std::optional<Header> outer = reader.next();
    if (!outer || !outer->isUniversal(BerReader::kTagSequence) || !outer->constructed) {
        throw BerReader::Error(u"the data is no ContentInfo"_s);
    }
    reader.enter(*outer);
    return reader.capture(
        reader.expect(BerReader::kUniversal, BerReader::kTagOid, false, "content type"),
        kMaxOidSize);
}

CmsHead CmsHead::readEnveloped(BerReader& reader, int type) {
    CmsHead head;
    head.type = type;
    reader.enter(reader.expect(BerReader::kContext, 0, true, "content"));
    reader.enter(
        reader.expect(BerReader::kUniversal, BerReader::kTagSequence, true, "enveloped layer"));
    head.fields = reader.capture(
        reader.expect(BerReader::kUniversal, BerReader::kTagInteger, false, "version"));
    std::optional<Header> header = reader.next();
    if (header && header->is(BerReader::kContext, 0)) {
        head.fields += reader.capture(*header);  // originator information
        header = reader.next();
    }
    if (!header || !header->isUniversal(BerReader::kTagSet) || !header->constructed) {
        throw BerReader::Error(u"the recipient list is missing"_s);
    }
    head.fields += reader.capture(*header, kMaxRecipientList);
    reader.enter(reader.expect(BerReader::kUniversal, BerReader::kTagSequence, true,
                               "encrypted content information"));
    head.contentType = reader.capture(
        reader.expect(BerReader::kUniversal, BerReader::kTagOid, false, "content type"),
        kMaxOidSize);
    head.contentEncryption = reader.capture(
        reader.expect(BerReader::kUniversal, BerReader::kTagSequence, true, "content encryption"));
    head.content = reader.next();
    if (head.content && !head.content->is(BerReader::kContext, 0)) {
        throw BerReader::Error(u"the encrypted content is not where it belongs"_s);
    }
    return head;
}

nivossl::CmsPtr CmsHead::withoutContent() const {
    QByteArray layer = fields + derOf(0x30, contentType + contentEncryption);
    if (type == NID_id_smime_ct_authEnvelopedData) {
        layer += derOf(0x04, QByteArray(kPlaceholderTagSize, '\0'));
    }
    return contentInfo(type, layer);
}

nivossl::CmsPtr CmsHead::contentInfo(int typeNid, const QByteArray& fields) {
    const QByteArray der = derOf(0x30, oidDer(typeNid) + derOf(0xA0, derOf(0x30, fields)));
    const auto* in = reinterpret_cast<const unsigned char*>(der.constData());
    return nivossl::CmsPtr(d2i_CMS_ContentInfo(nullptr, &in, der.size()));
}

QByteArray CmsHead::derOf(quint8 identifier, const QByteArray& content) {
    return static_cast<char>(identifier) + derLength(content.size()) + content;
}

int CmsHead::oidNid(const QByteArray& der) {
    const auto* in = reinterpret_cast<const unsigned char*>(der.constData());
    const ObjectPtr object(d2i_ASN1_OBJECT(nullptr, &in, der.size()));
    ERR_clear_error();
    return object ? OBJ_obj2nid(object.get()) : NID_undef;
}
