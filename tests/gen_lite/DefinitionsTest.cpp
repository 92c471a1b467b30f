// SPDX-License-Identifier: Apache-2.0

// Compares the compiled definition files with a table, because other components rely on each
// number, type and default.

#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace qv::tests {
namespace {

using google::protobuf::EnumDescriptorProto;
using google::protobuf::FieldDescriptorProto;
using google::protobuf::FileDescriptorProto;
using google::protobuf::FileDescriptorSet;
using google::protobuf::FileOptions;

using Lines = std::vector<std::string>;

std::string labelName(const FieldDescriptorProto& field) {
    switch (field.label()) {
        case FieldDescriptorProto::LABEL_REQUIRED:
            return "required";
        case FieldDescriptorProto::LABEL_REPEATED:
            return "repeated";
        default:
            return "optional";
    }
}

std::string typeName(const FieldDescriptorProto& field) {
    if (field.has_type_name()) {
        return field.type_name();
    }
    std::string name = FieldDescriptorProto::Type_Name(field.type()).substr(5);
    for (char& c : name) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return name;
}

// Returns the line of an enum whose values are named after their numbers.
std::string enumLine(const std::string& name, const std::string& prefix,
                     const std::vector<int>& numbers) {
    std::string line = "enum " + name;
    for (const int number : numbers) {
        line += " " + prefix + std::to_string(number) + "=" + std::to_string(number);
    }
    return line;
}

// Returns one line for each declaration, in the file's order.
Lines declarations(const FileDescriptorProto& file) {
    Lines lines;
    for (const EnumDescriptorProto& type : file.enum_type()) {
        std::string line = "enum " + type.name();
        for (const auto& value : type.value()) {
            line += " " + value.name() + "=" + std::to_string(value.number());
        }
        lines.push_back(line);
    }
    for (const auto& message : file.message_type()) {
        lines.push_back("message " + message.name());
        for (const FieldDescriptorProto& field : message.field()) {
            std::string line = labelName(field) + " " + typeName(field) + " " + field.name() + " " +
                               std::to_string(field.number());
            if (field.has_default_value()) {
                line += " default " + field.default_value();
            }
            if (field.options().has_packed()) {
                line += " packed " + std::to_string(field.options().packed());
            }
            lines.push_back(line);
        }
        EXPECT_EQ(message.nested_type_size() + message.enum_type_size() + message.extension_size() +
                      message.extension_range_size() + message.oneof_decl_size(),
                  0)
            << message.name();
    }
    return lines;
}

FileDescriptorProto compiled(const std::string& name) {
    std::ifstream stream(QV_DESCRIPTOR_SET, std::ios::binary);
    FileDescriptorSet set;
    EXPECT_TRUE(set.ParseFromIstream(&stream));
    for (const FileDescriptorProto& file : set.file()) {
        if (file.name() == name) {
            return file;
        }
    }
    ADD_FAILURE() << name << " is not in " << QV_DESCRIPTOR_SET;
    return {};
}

void expectSettings(const FileDescriptorProto& file) {
    // protoc omits the syntax of a proto2 file.
    EXPECT_FALSE(file.has_syntax());
    EXPECT_EQ(file.package(), "qor.kevra");
    EXPECT_EQ(file.options().optimize_for(), FileOptions::LITE_RUNTIME);
    EXPECT_EQ(file.dependency_size(), 0);
    EXPECT_EQ(file.service_size(), 0);
    EXPECT_EQ(file.extension_size(), 0);
}

TEST(Definitions, NamingServiceMatchesTheTable) {
    const FileDescriptorProto file = compiled("namingService.proto");
    expectSettings(file);
    EXPECT_EQ(declarations(file), (Lines{
                                      "message ServiceInfo",
                                      "optional int32 id 1",
                                      "optional string address 2",
                                      "message ServiceInfoArray",
                                      "repeated .qor.kevra.ServiceInfo services 1",
                                  }));
}

TEST(Definitions, CommonMessagesMatchTheTable) {
    const FileDescriptorProto file = compiled("KevraCommonMsg.proto");
    expectSettings(file);
    const Lines expected{
        enumLine("ProxyType", "PROXY_TYPE_", {0, 1, 2, 3}),
        enumLine("ScheduleInterval", "SCHEDULE_INTERVAL_", {1, 2, 3, 4, 5}),
        enumLine("LorxProtectStatus", "LORX_PROTECT_STATUS_", {1, 2}),
        enumLine("FileEventEvent", "FILE_EVENT_EVENT_", {1, 2, 4, 8, 16, 32, 64, 128}),
        enumLine("FileEventType", "FILE_EVENT_TYPE_", {0, 1, 2}),
        enumLine("FileResultType", "FILE_RESULT_TYPE_", {1, 2}),
        enumLine("FileChannel", "FILE_CHANNEL_", {0, 1, 2, 3, 10, 11, 999}),
        enumLine("NetworkEventEvent", "NETWORK_EVENT_EVENT_", {1, 2, 4, 8}),
        "message BoolType",
        "optional bool value 1",
        "message UIntType",
        "optional uint32 value 1",
        "message IntType",
        "optional int32 value 1",
        "message IntArray",
        "repeated int32 values 1",
        "message UIntArray",
        "repeated uint32 values 1",
        "message StringType",
        "optional string value 1",
        "message UIntPair",
        "optional uint32 first 1",
        "optional uint32 second 2",
        "message UIntPairArray",
        "repeated .qor.kevra.UIntPair values 1",
        "message NullObject",
        "message ProxyData",
        "optional bool use_sys_proxy 1",
        "optional bool use_proxy 2",
        "optional int32 protocol 3",
        "optional string server_addr 4",
        "optional int32 port 5",
        "optional bool need_password 6",
        "optional string user_name 7",
        "optional string password 8",
        "message EventData",
        "optional uint32 client 1",
        "repeated int32 event_ids 2",
        "message TaskScheduleData",
        "optional .qor.kevra.ScheduleInterval schedule_interval 1",
        "optional int32 start_month_day 2",
        "optional int32 start_week_day 3",
        "optional int32 start_hour 4",
        "optional int32 start_minute 5",
        "optional int32 interval_hours 7",
        "message DebugOption",
        "required int32 plugins 1",
        "optional int32 debug_level 2",
        "message FileEvent",
        "optional uint32 plugins 1",
        "optional .qor.kevra.FileEventEvent event 2",
        "optional uint64 inode 3",
        "optional string file 4",
        "optional uint32 devid 5",
        "optional string proc_name 6",
        "optional int32 pid 7",
        "optional int64 uid 8",
        "optional string exe 9",
        "optional .qor.kevra.FileEventType type 10",
        "optional string proc_group_name 11",
        "optional int32 group_pid 12",
        "optional string group_exe 13",
        "optional string src_file 14",
        "optional uint32 time 15",
        "optional int32 started_pid 16",
        "optional string started_cmdline 17",
        "optional string proc_parent_name 18",
        "optional int32 parent_pid 19",
        "optional string parent_exe 20",
        "message FileEventArray",
        "required uint32 plugins 1",
        "repeated .qor.kevra.FileEvent event 2",
        "optional uint32 first_time 3",
        "optional bool need_send 4",
        "message FileEventResult",
        "required .qor.kevra.FileResultType type 1",
        "message sperateConfig",
        "optional bool enable 1",
        "optional int32 remote_disk_unhook_type 2",
        "optional bool enable_network_drive_scan 3",
        "repeated string remote_disk_unhook_fs 4",
        "optional bool enable_time_machine_scan 6 default true",
        "optional bool enable_exclude 7 default true",
        "message RegFileEvent",
        "required int32 plugin 1",
        "optional int32 type 2 default 255",
        "optional .qor.kevra.sperateConfig config 3",
        "message URLEvent",
        "optional uint32 plugins 1",
        "optional string url 2",
        "optional int32 pid 4",
        "optional int64 uid 5",
        "optional string exe 6",
        "optional uint32 time 7",
        "optional string host 8",
        "optional string ip 9",
        "optional uint32 port 10",
        "message RegNetworkEvent",
        "required int32 plugin 1",
        "optional int32 type 2 default 255",
        "message NetworkEvent",
        "optional uint32 plugins 1",
        "optional string src_ip 2",
        "optional uint32 src_port 3",
        "optional string dst_ip 4",
        "optional uint32 dst_port 5",
        "optional .qor.kevra.NetworkEventEvent event 6",
        "optional int32 pid 8",
        "optional int64 uid 9",
        "optional string exe 10",
        "optional int32 type 12",
        "optional uint32 time 11",
        "message URLEventArray",
        "required uint32 plugins 1",
        "repeated .qor.kevra.URLEvent event 2",
        "message NetworkEventArray",
        "required uint32 plugins 1",
        "repeated .qor.kevra.NetworkEvent event 2",
    };
    EXPECT_EQ(declarations(file), expected);
}

}  // namespace
}  // namespace qv::tests
