#include "platform/Gale/JournalEntries.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace Gale {
namespace {

using Model = std::map<EntryKey, Position>;

void add(JournalEntries& sut, Model& model, const EntryKey& key, Position value) {
    const auto before = sut.lower_bound(key);
    const bool there = before != sut.end() && before->first == key;
    ASSERT_EQ(there, model.contains(key));
    const auto at = there ? before : sut.insert(before, key);
    ASSERT_EQ(at->first, key);
    at->second.born = value;
    model[key] = value;
}

void del(JournalEntries& sut, Model& model, const EntryKey& key) {
    const auto at = sut.find(key);
    ASSERT_EQ(at != sut.end(), model.contains(key));
    if (at != sut.end()) { sut.erase(at); }
    model.erase(key);
}

void expectSame(JournalEntries& sut, const Model& model) {
    ASSERT_EQ(sut.size(), model.size());
    auto at = sut.begin();
    for (const auto& [key, value] : model) {
        ASSERT_FALSE(at == sut.end());
        ASSERT_EQ(at->first, key);
        ASSERT_EQ(at->second.born, value);
        ++at;
    }
    ASSERT_TRUE(at == sut.end());
}

void expectSameBounds(JournalEntries& sut, const Model& model, const EntryKey& key) {
    const auto same = [&](auto at, auto end, auto in) {
        ASSERT_EQ(at == end, in == model.end());
        if (in != model.end()) { ASSERT_EQ(at->first, in->first); }
    };
    same(sut.lower_bound(key), sut.end(), model.lower_bound(key));
    same(sut.upper_bound(key), sut.end(), model.upper_bound(key));
    const JournalEntries& constant = sut;
    same(constant.upper_bound(key), constant.end(), model.upper_bound(key));
    same(constant.find(key), constant.end(), model.find(key));
}

TEST(JournalEntries, KeepOrderWhateverComesAndGoes) {
    for (const std::uint64_t range : {20U, 300U, 5000U}) {
        std::mt19937_64 random{range};
        JournalEntries sut;
        Model model;
        // Growing, level, shrinking to nothing, growing again.
        for (const unsigned addsOfTen : {8U, 5U, 1U, 9U, 0U}) {
            for (unsigned i = 0; i < 6000; ++i) {
                const EntryKey key{random() % 2, random() % range / 7, random() % range};
                if (random() % 10 < addsOfTen) {
                    add(sut, model, key, i + 1);
                } else {
                    del(sut, model, key);
                }
                if (i % 16 == 0) { expectSameBounds(sut, model, key); }
                if (HasFatalFailure()) { return; }
            }
            expectSame(sut, model);
        }
        while (!model.empty()) { del(sut, model, model.begin()->first); }
        expectSame(sut, model);
    }
}

TEST(JournalEntries, TakeKeysInOrderFromEitherEnd) {
    JournalEntries sut;
    Model model;
    for (std::uint64_t i = 0; i < 1000; ++i) {
        add(sut, model, {0, 0, 10'000 + i}, i + 1);
        add(sut, model, {0, 0, 10'000 - 1 - i}, i + 1);
    }
    expectSame(sut, model);
    for (std::uint64_t i = 0; i < 1000; ++i) {
        del(sut, model, {0, 0, 9'000 + i});
        expectSameBounds(sut, model, {0, 0, 9'500});
    }
    for (std::uint64_t i = 0; i < 500; ++i) { add(sut, model, {0, 0, 1 + 3 * i}, i + 1); }
    expectSame(sut, model);
}

TEST(JournalEntries, FindNothingWhereThereIsNone) {
    JournalEntries sut;
    const EntryKey key{1, 2, 3};
    EXPECT_TRUE(sut.find(key) == sut.end());
    EXPECT_TRUE(sut.lower_bound(key) == sut.end());
    EXPECT_TRUE(sut.begin() == sut.end());
    EXPECT_EQ(sut.size(), 0U);
}

}  // namespace
}  // namespace Gale
