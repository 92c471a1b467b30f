// SPDX-License-Identifier: Apache-2.0

// Measures the property lists that the plug-in stores, with the services of the directory:
//
//   - writing an XML document and reading an XML or a binary one. libplist does the same with the
//     same document in the same run.
//   - building the list of services from their identifiers and addresses, and releasing it.

#include <benchmark/benchmark.h>
#include <plist/plist.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "QvCFHolder.h"
#include "support/SleepingThread.h"

namespace {

using qor::kevra::CFHolder;

// As in any real host.
const qv::bench::SleepingThread g_anotherThread;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "property_list_bench: %s\n", what);
    std::abort();
}

struct Service {
    std::int32_t id;
    std::string address;
};

std::vector<Service> servicesUpTo(std::int64_t count) {
    std::vector<Service> services;
    services.reserve(static_cast<std::size_t>(count));
    for (std::int32_t id = 0; id < count; ++id) {
        services.push_back({id, "unix:/var/run/lorx/service-" + std::to_string(id) + ".sock"});
    }
    return services;
}

CFHolder<CFStringRef> string(const char* text) {
    return CFHolder<CFStringRef>(CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8));
}

CFHolder<CFMutableDictionaryRef> dictionary() {
    return CFHolder<CFMutableDictionaryRef>(CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

CFHolder<CFDictionaryRef> dictionaryOf(const Service& service) {
    CFHolder<CFMutableDictionaryRef> entry = dictionary();
    {
        const CFHolder<CFStringRef> key = string("id");
        const CFHolder<CFNumberRef> id(CFNumberCreate(nullptr, kCFNumberSInt32Type, &service.id));
        CFDictionaryAddValue(entry.get(), key.get(), id.get());
    }
    {
        const CFHolder<CFStringRef> key = string("address");
        const CFHolder<CFStringRef> address = string(service.address.c_str());
        CFDictionaryAddValue(entry.get(), key.get(), address.get());
    }
    return CFHolder<CFDictionaryRef>(entry.release());
}

CFHolder<CFArrayRef> arrayOf(const std::vector<Service>& services) {
    std::vector<const void*> entries;
    entries.reserve(services.size());
    for (const Service& service : services) {
        entries.push_back(dictionaryOf(service).release());
    }
    CFHolder<CFArrayRef> array(CFArrayCreate(
        nullptr, entries.data(), static_cast<CFIndex>(entries.size()), &kCFTypeArrayCallBacks));
    for (const void* const entry : entries) {
        const CFHolder<CFTypeRef> end(entry);
    }
    return array;
}

// {"Address": {"services": [...]}}
CFHolder<CFPropertyListRef> treeOf(const std::vector<Service>& services) {
    const CFHolder<CFStringRef> listKey = string("services");
    const CFHolder<CFArrayRef> list = arrayOf(services);
    const CFHolder<CFMutableDictionaryRef> address = dictionary();
    CFDictionaryAddValue(address.get(), listKey.get(), list.get());

    const CFHolder<CFStringRef> addressKey = string("Address");
    CFHolder<CFMutableDictionaryRef> root = dictionary();
    CFDictionaryAddValue(root.get(), addressKey.get(), address.get());
    return CFHolder<CFPropertyListRef>(root.release());
}

// The measured library and its peer. Both define the same members:
//
//   - Tree releases its contents when it is destroyed.
//   - readXml() and readBinary() return a tree, which is empty if the document is refused.
//   - write() creates a document, releases it, and returns its length.

struct Ours {
    using Tree = CFHolder<CFPropertyListRef>;

    static Tree readXml(const std::string& document) {
        const CFHolder<CFDataRef> data(
            CFDataCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8*>(document.data()),
                                        static_cast<CFIndex>(document.size()), kCFAllocatorNull));
        Tree tree(CFPropertyListCreateFromXMLData(nullptr, data.get(),
                                                  kCFPropertyListMutableContainers, nullptr));
        if (!tree || CFPropertyListIsValid(tree.get(), kCFPropertyListBinaryFormat_v1_0) == FALSE) {
            return {};
        }
        return tree;
    }
    static Tree readBinary(const std::string& document) { return readXml(document); }

    static std::size_t write(const Tree& tree) {
        const CFHolder<CFDataRef> data(CFPropertyListCreateXMLData(nullptr, tree.get()));
        return static_cast<std::size_t>(CFDataGetLength(data.get()));
    }
};

struct Peer {
    struct End {
        void operator()(plist_t tree) const { plist_free(tree); }
    };
    using Tree = std::unique_ptr<void, End>;

    static Tree readXml(const std::string& document) {
        plist_t tree = nullptr;
        plist_from_xml(document.data(), static_cast<std::uint32_t>(document.size()), &tree);
        return Tree(tree);
    }
    static Tree readBinary(const std::string& document) {
        plist_t tree = nullptr;
        plist_from_bin(document.data(), static_cast<std::uint32_t>(document.size()), &tree);
        return Tree(tree);
    }
    static std::size_t write(const Tree& tree) {
        char* document = nullptr;
        std::uint32_t length = 0;
        plist_to_xml(tree.get(), &document, &length);
        plist_to_xml_free(document);
        return length;
    }
};

std::string xmlDocument(std::int64_t services) {
    const CFHolder<CFPropertyListRef> tree = treeOf(servicesUpTo(services));
    const CFHolder<CFDataRef> data(CFPropertyListCreateXMLData(nullptr, tree.get()));
    if (!data) {
        fail("writing a document failed");
    }
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data.get())),
            static_cast<std::size_t>(CFDataGetLength(data.get()))};
}

std::string binaryDocument(std::int64_t services) {
    const Peer::Tree tree = Peer::readXml(xmlDocument(services));
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(tree.get(), &bytes, &length);
    std::string document(bytes, length);
    plist_to_bin_free(bytes);
    return document;
}

// The documents of the two libraries differ only in white space and in the order of keys.
template <class Tree>
void requireWholeTree(const Tree& tree, std::size_t length, std::size_t written) {
    if (!tree || written < length / 2 || written > length * 2) {
        fail("reading a document failed");
    }
}

template <class Library>
void writeXml(benchmark::State& state) {
    const std::string document = xmlDocument(state.range(0));
    const typename Library::Tree tree = Library::readXml(document);
    requireWholeTree(tree, document.size(), Library::write(tree));
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(Library::write(tree));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Library>
void readXml(benchmark::State& state) {
    const std::string document = xmlDocument(state.range(0));
    const typename Library::Tree tree = Library::readXml(document);
    requireWholeTree(tree, document.size(), Library::write(tree));
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(Library::readXml(document));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Library>
void readBinary(benchmark::State& state) {
    const std::string document = binaryDocument(state.range(0));
    const typename Library::Tree tree = Library::readBinary(document);
    requireWholeTree(tree, xmlDocument(state.range(0)).size(), Library::write(tree));
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(Library::readBinary(document));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Action>
double secondsOf(Action action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void build(benchmark::State& state) {
    const std::vector<Service> services = servicesUpTo(state.range(0));
    for ([[maybe_unused]] auto _ : state) {
        CFHolder<CFArrayRef> array;
        state.SetIterationTime(secondsOf([&] { array = arrayOf(services); }));
        benchmark::DoNotOptimize(array.get());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void release(benchmark::State& state) {
    const std::vector<Service> services = servicesUpTo(state.range(0));
    for ([[maybe_unused]] auto _ : state) {
        CFHolder<CFArrayRef> array = arrayOf(services);
        state.SetIterationTime(secondsOf([&] { array = {}; }));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define QV_SIZES Arg(100)->Arg(1'000)->Arg(10'000)

BENCHMARK(writeXml<Ours>)->QV_SIZES;
BENCHMARK(writeXml<Peer>)->QV_SIZES;
BENCHMARK(readXml<Ours>)->QV_SIZES;
BENCHMARK(readXml<Peer>)->QV_SIZES;
BENCHMARK(readBinary<Ours>)->QV_SIZES;
BENCHMARK(readBinary<Peer>)->QV_SIZES;
BENCHMARK(build)->QV_SIZES->UseManualTime();
BENCHMARK(release)->QV_SIZES->UseManualTime();

}  // namespace
