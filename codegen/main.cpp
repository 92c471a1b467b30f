// SPDX-License-Identifier: Apache-2.0

// protoc-gen-kevra generates the message classes. protoc passes it a definition file, and writes
// the files that it returns:
//
//     protoc --plugin=protoc-gen-kevra=<this program> --kevra_out=<folder> namingService.proto

#include <google/protobuf/compiler/plugin.h>

#include "MessageGenerator.h"

int main(int argc, char* argv[]) {
    const qor::kevra::codegen::MessageGenerator generator;
    return google::protobuf::compiler::PluginMain(argc, argv, &generator);
}
