#pragma once

// Field numbers of the gNMI messages that are written and read without generated code.
namespace Gale::Fields {

namespace SubscribeResponse {
inline constexpr int update = 1;
inline constexpr int syncResponse = 3;
}  // namespace SubscribeResponse
namespace GetResponse {
inline constexpr int notification = 1;
}
namespace Notification {
inline constexpr int timestamp = 1;
inline constexpr int prefix = 2;
inline constexpr int update = 4;
inline constexpr int deletion = 5;
inline constexpr int atomic = 6;
}  // namespace Notification
namespace Update {
inline constexpr int path = 1;
inline constexpr int val = 3;
}  // namespace Update
namespace Path {
inline constexpr int origin = 2;
inline constexpr int elem = 3;
inline constexpr int target = 4;
}  // namespace Path
namespace PathElem {
inline constexpr int name = 1;
inline constexpr int key = 2;
}  // namespace PathElem
namespace MapEntry {
inline constexpr int key = 1;
inline constexpr int value = 2;
}  // namespace MapEntry
namespace TypedValue {
inline constexpr int string = 1;
inline constexpr int uint = 3;
inline constexpr int flag = 4;
inline constexpr int leafList = 8;
inline constexpr int json = 10;
inline constexpr int jsonIetf = 11;
}  // namespace TypedValue
namespace ScalarArray {
inline constexpr int element = 1;
}

}  // namespace Gale::Fields
