#include "trace/reader/Message.h"

#include "tavos/osa/Exception.h"

namespace trace {

using tavos::osa::Exception;

namespace {

constexpr std::uint8_t kSequence = 0x30;
constexpr std::uint8_t kAuthFlag = 0x01;
constexpr std::uint8_t kPrivFlag = 0x02;
constexpr std::uint8_t kReportableFlag = 0x04;
constexpr std::int64_t kUserSecurityModel = 3;

Value DecodeValue(const Element& element) {
    constexpr auto kWhat = "a value";
    Value value;
    value.type = element.tag;
    switch (element.tag) {
        case kInteger:
            value.number = SignedOf(element.contents, kWhat);
            break;
        case kCounter32:
        case kGauge32:
        case kTimeTicks:
        case kCounter64:
            value.number = static_cast<std::int64_t>(UnsignedOf(element.contents, kWhat));
            break;
        case kObjectId:
            value.id = ObjectIdOf(element.contents, kWhat);
            break;
        default:
            value.octets = element.contents;
    }
    return value;
}

std::vector<Binding> DecodeBindings(std::string_view octets) {
    std::vector<Binding> bindings;
    BerReader list(octets);
    while (!list.AtEnd()) {
        BerReader pair(list.Next("a binding", kSequence));
        Binding binding;
        binding.name = ObjectIdOf(pair.Next("a binding's name", kObjectId), "a binding's name");
        binding.value = DecodeValue(pair.Next("a value"));
        if (!pair.AtEnd()) throw Exception("a binding has more than a name and a value");
        bindings.push_back(std::move(binding));
    }
    return bindings;
}

/// Fills `pdu` as far as it goes, so that a broken PDU's request id is known.
void DecodePdu(const Element& element, std::optional<Pdu>& pdu) {
    pdu.emplace();
    pdu->type = element.tag;
    if (element.tag < kGet || element.tag > kReport) throw Exception("its PDU has the unknown tag %02x", element.tag);
    if (element.tag == kTrapV1) return;  // another form, which no agent answers
    BerReader fields(element.contents);
    pdu->requestId = fields.NextInteger("the request id");
    pdu->errorStatus = fields.NextInteger("the error status");
    pdu->errorIndex = fields.NextInteger("the error index");
    pdu->bindings = DecodeBindings(fields.Next("the bindings", kSequence));
}

void DecodeSecurity(std::string_view octets, Security& security) {
    BerReader parameters(octets);
    BerReader fields(parameters.Next("the security parameters", kSequence));
    security.engine = fields.Next("the engine ID", kOctetString);
    security.boots = fields.NextInteger("the engine's boots");
    security.time = fields.NextInteger("the engine's time");
    security.user = fields.Next("the user's name", kOctetString);
}

void DecodeVersion3(BerReader& fields, Message& message) {
    Security& security = message.security.emplace();
    BerReader global(fields.Next("the message's head", kSequence));
    global.NextInteger("the message id");
    global.NextInteger("the max size");
    const std::string_view flags = global.Next("the flags", kOctetString);
    if (flags.size() != 1) throw Exception("the flags have %zu octets, not 1", flags.size());
    security.isAuthenticated = (flags[0] & kAuthFlag) != 0;
    security.isEncrypted = (flags[0] & kPrivFlag) != 0;
    security.isReportable = (flags[0] & kReportableFlag) != 0;
    const std::int64_t model = global.NextInteger("the security model");
    if (model != kUserSecurityModel) throw Exception("it has the security model %d, not 3", static_cast<int>(model));
    DecodeSecurity(fields.Next("the security parameters", kOctetString), security);
    if (security.isEncrypted) {
        fields.Next("the encrypted PDU", kOctetString);
        return;
    }
    BerReader scoped(fields.Next("the scoped PDU", kSequence));
    scoped.Next("the context's engine ID", kOctetString);
    security.context = scoped.Next("the context's name", kOctetString);
    DecodePdu(scoped.Next("the PDU"), message.pdu);
}

void Decode(std::string_view octets, Message& message) {
    if (octets.empty()) throw Exception("it is empty");
    BerReader whole(octets);
    // An agent ignores what follows the message.
    BerReader fields(whole.Next("the message", kSequence));
    const std::int64_t version = fields.NextInteger("the version");
    message.version = static_cast<int>(version);
    if (version == kVersion3) {
        DecodeVersion3(fields, message);
    } else if (version == kVersion1 || version == kVersion2c) {
        message.community = fields.Next("the community", kOctetString);
        DecodePdu(fields.Next("the PDU"), message.pdu);
    } else {
        throw Exception("its version is %lld, not 0 (SNMPv1), 1 (SNMPv2c) or 3", static_cast<long long>(version));
    }
}

}  // namespace

Message DecodeMessage(std::string_view octets) {
    Message message;
    try {
        Decode(octets, message);
    } catch (const Exception& error) {
        message.wrong = error.what();
    }
    return message;
}

}  // namespace trace
