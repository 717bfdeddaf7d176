#include "tools/inscenter/CompareRecords.h"

#include <fmt/format.h>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/record/Records.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/RecordText.h"

namespace inscenter {
namespace {

using mxservice::CETFComponentStockInfo;
using mxservice::CInstrumentDetail;
using mxservice::ComponentMap;
using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;
namespace market = mxservice::market;

bool isHongKong(const std::string& name) {
    return name == market::kHongKong || name == market::kShanghaiConnect || name == market::kShenzhenConnect;
}

std::string valueOf(const Field& field, const IData& record) {
    std::string text;
    if (field.kind() == FieldKind::Text) {
        appendJsonString(text, field.in<std::string>(record));
    } else {
        appendField(text, field, record);
    }
    return text;
}

const char* presence(const IData* record) {
    return record == nullptr ? "nothing" : "a record";
}

}  // namespace

RecordComparison::RecordComparison(const Snapshot& snapshot) {
    for (const auto& record : snapshot.instruments) {
        if (record->market != market::kHongKong && isHongKong(record->market)) {
            connectCodes_.insert(record->code);
        }
    }
    for (const auto& etf : snapshot.etfs) {
        creationKeys_.insert(utils::ovStockKey(etf->market, etf->prCode));
    }
}

std::string RecordComparison::difference(const IData* server, const IData* client,
                                         const std::string& relabelled) const {
    if (server == nullptr || client == nullptr) {
        return server == client ? std::string()
                                : fmt::format("server {}, client {}", presence(server), presence(client));
    }
    if (&server->recordType() != &client->recordType()) {
        return fmt::format("server {}, client {}", server->recordType().name(), client->recordType().name());
    }
    std::string found;
    for (const Field& field : server->recordType().fields()) {
        std::string difference;
        if (field.name() == "market" && !relabelled.empty()) {
            const auto& asked = field.in<std::string>(*client);
            difference = asked == relabelled ? "" : fmt::format("client's market {}, asked for {}", asked, relabelled);
        } else {
            difference = fieldDifference(field, *server, *client);
        }
        found += found.empty() || difference.empty() ? "" : "; ";
        found += difference;
    }
    return found;
}

std::string RecordComparison::fieldDifference(const Field& field, const IData& server, const IData& client) const {
    if (field.equal(server, client) || isDeliberate(field, server)) {
        return {};
    }
    if (field.kind() != FieldKind::Components) {
        return fmt::format("{}: server {}, client {}", field.name(), valueOf(field, server), valueOf(field, client));
    }
    const auto& ours = field.in<ComponentMap>(server);
    const auto& theirs = field.in<ComponentMap>(client);
    for (const auto& [code, component] : ours) {
        const auto found = theirs.find(code);
        const std::string inner = difference(component.get(), found == theirs.end() ? nullptr : found->second.get());
        if (!inner.empty()) {
            return fmt::format("component {}: {}", code, inner);
        }
    }
    return ours.size() == theirs.size() ? std::string()
                                        : fmt::format("components: server {}, client {}", ours.size(), theirs.size());
}

bool RecordComparison::isDeliberate(const Field& field, const IData& server) const {
    if (field.name() == "name" && field.in<std::string>(server).empty()) {
        return &server.recordType() == &CETFComponentStockInfo::table() || creationKeys_.count(server.getKey()) != 0;
    }
    if (field.name() == "combinedConnectFlags") {
        const auto& record = static_cast<const CInstrumentDetail&>(server);
        return isHongKong(record.market) && connectCodes_.count(record.code) != 0;
    }
    return false;
}

}  // namespace inscenter
