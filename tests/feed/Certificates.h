#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/feed/NatsServer.h"

namespace mxservice::feed {

/// An authority and what it signs, made anew with openssl for each test.
class Certificates {
public:
    Certificates() {
        openssl({"req", "-x509", "-nodes", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-days", "2",
                 "-subj", "/CN=authority", "-keyout", key("authority"), "-out", file("authority")});
    }

    /// Makes a certificate for a host of that name, or a client; `more`: other names of it, ",IP:ADDRESS".
    void sign(const std::string& name, const std::string& more = {}) const {
        const std::string request = file(name) + ".request";
        openssl({"req", "-nodes", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-subj", "/CN=" + name,
                 "-addext", "subjectAltName=DNS:" + name + more, "-keyout", key(name), "-out", request});
        openssl({"x509", "-req", "-in", request, "-CA", file("authority"), "-CAkey", key("authority"),
                 "-copy_extensions", "copy", "-days", "2", "-out", file(name)});
    }

    std::string file(const std::string& name) const { return (directory_.path() / (name + ".pem")).string(); }
    std::string key(const std::string& name) const { return (directory_.path() / (name + ".key")).string(); }

private:
    static void openssl(std::vector<std::string> words) {
        words.insert(words.begin(), "openssl");
        EXPECT_EQ(Process(words).wait(), 0) << words[1];
    }

    const TemporaryDirectory directory_{TemporaryDirectory::inMemory()};
};

}  // namespace mxservice::feed
