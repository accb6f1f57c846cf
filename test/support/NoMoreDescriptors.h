#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace TestSupport {

/// While it lives this process can open no descriptor: it stands at its limit (EMFILE).
class NoMoreDescriptors {
public:
    NoMoreDescriptors() {
        EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0);
        set({3, before_.rlim_max});
    }
    ~NoMoreDescriptors() { set(before_); }
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    static void set(const rlimit& limit) { EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0); }
    rlimit before_{};
};

}  // namespace TestSupport
