#include "apps/cli/GnmiJson.h"

#include <proto/gnmi.pb.h>

#include <nlohmann/json.hpp>

#include "apps/cli/GnmiText.h"

namespace Pel::Cli {
namespace {

using Json = nlohmann::ordered_json;

Json valueJson(const gnmi::TypedValue& value) {
    switch (value.value_case()) {
        case gnmi::TypedValue::kIntVal:
            return value.int_val();
        case gnmi::TypedValue::kUintVal:
            return value.uint_val();
        case gnmi::TypedValue::kBoolVal:
            return value.bool_val();
        case gnmi::TypedValue::kDoubleVal:
            return value.double_val();
        case gnmi::TypedValue::kLeaflistVal: {
            Json list = Json::array();
            for (const gnmi::TypedValue& element : value.leaflist_val().element()) {
                list.push_back(valueJson(element));
            }
            return list;
        }
        case gnmi::TypedValue::kJsonVal:
        case gnmi::TypedValue::kJsonIetfVal: {
            Json read = Json::parse(valueText(value), nullptr, false);
            return read.is_discarded() ? Json{valueText(value)} : read;
        }
        default:
            return valueText(value);
    }
}

Json notificationJson(const gnmi::Notification& notification) {
    Json result{{"timestamp", notification.timestamp()}};
    if (notification.atomic()) {
        result["atomic"] = true;
        result["prefix"] = pathText(notification.prefix(), {});
    }
    for (const gnmi::Path& gone : notification.delete_()) {
        result["delete"].push_back(pathText(notification.prefix(), gone));
    }
    for (const gnmi::Update& update : notification.update()) {
        Json& item = result["update"].emplace_back();
        item["path"] = pathText(notification.prefix(), update.path());
        item["value"] = valueJson(update.val());
    }
    return result;
}

}  // namespace

std::string jsonLine(const gnmi::SubscribeResponse& response) {
    const Json json = response.has_update() ? notificationJson(response.update())
                                            : Json{{"synced", response.sync_response()}};
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Pel::Cli
