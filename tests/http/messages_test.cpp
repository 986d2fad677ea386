// URLs, header maps, bodies, messages and the HTTP exception.
#include "../support/TestSupport.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <tmain/http/Body.h>
#include <tmain/http/HTTPException.h>
#include <tmain/http/Header.h>
#include <tmain/http/HeaderMap.h>
#include <tmain/http/Request.h>
#include <tmain/http/Response.h>
#include <tmain/http/URL.h>
#include <tmain/stream/ByteInputStream.h>

using namespace tarso::http;
using tarso::stream::ByteInputStream;

namespace {

// All parts and the text form; "SIZES|" when a size accessor disagrees (user
// name and password must stay empty).
std::string fields(const URL& u) {
    bool sizes =
        u.getSchemeSize() == strlen(u.getScheme()) && u.getHostSize() == strlen(u.getHost()) &&
        u.getPathSize() == strlen(u.getPath()) && u.getQuerySize() == strlen(u.getQuery()) &&
        u.getUserNameSize() + u.getPasswordSize() + strlen(u.getUserName()) + strlen(u.getPassword()) == 0;
    return std::string(u.isValid() ? "" : "invalid|") + (sizes ? "" : "SIZES|") + u.getScheme() + "|" +
           u.getHost() + "|" + std::to_string(u.getPort()) + "|" + u.getPath() + "|" + u.getQuery() + "|" +
           u.toString();
}

// Memory stream that counts its destructions and tell() calls, and can refuse to tell.
struct TrackedStream : ByteInputStream {
    TrackedStream(const std::string& d, int* deaths, bool canTell = true)
        : ByteInputStream(d.data(), (unsigned)d.size(), true), mDeaths(deaths), mCanTell(canTell) {}
    ~TrackedStream() override { ++*mDeaths; }
    unsigned tell() const override {
        ++mTells;
        return mCanTell ? ByteInputStream::tell() : Stream::tell();
    }
    int* mDeaths;
    bool mCanTell;
    mutable int mTells = 0;
};

} // namespace

TEST(URLTest, ParsesLeniently) {
    const char* cases[][2] = {
        {"h/a?b=1", "http|h|80|/a|b=1|http://h/a?b=1"},
        {"/local/file", "file||80|/local/file||file:///local/file"},
        {"http://h:8080", "http|h|8080|/||http://h:8080/"},
        {"https://secure.example/x", "https|secure.example|80|/x||https://secure.example/x"},
        {"http://h:80/p", "http|h|80|/p||http://h/p"},
        {"http://h:0/p", "http|h|0|/p||http://h/p"},
        {"http://h:65535/p", "http|h|65535|/p||http://h:65535/p"},
        {"http://h:65536/p", "http|h|65536|/p||http://h/p"},
        {"http://h:99999999999999/p", "http|h|4294967295|/p||http://h/p"},
        {"http://user:pw@h/p", "http|user:pw@h|80|/p||http://user:pw@h/p"},
        {"http://h:8a/p", "http|h|8|/p||http://h:8/p"},
        {"http://h:123:456/x", "http|h|123|/x||http://h:123/x"},
        {"localhost:8080/x?y", "http|localhost|8080|/x|y|http://localhost:8080/x?y"},
        {"mailto:x@y", "http|mailto:x@y|80|/||http://mailto:x@y/"},
        {"file:///c/d", "file||80|/c/d||file:///c/d"},
        {"http:/h/x", "http||80|/h/x||http:///h/x"},
        {"ftp://h/a?b?c/d", "ftp|h|80|/a|b?c/d|ftp://h/a?b?c/d"},
        {"h?q=/s", "http|h|80|/|q=/s|http://h/?q=/s"},
        {"http://h?", "http|h|80|/||http://h/"},
        {"http://h/a#frag", "http|h|80|/a#frag||http://h/a#frag"},
        {"", "http||80|/||http:///"},
    };
    for (auto& c : cases)
        EXPECT_EQ(c[1], fields(URL(c[0]))) << c[0];

    // Parsing into a used URL leaves no trace of its port, query or cached text.
    URL u("https://a:81/p?q=1");
    EXPECT_STREQ("https://a:81/p?q=1", u.toString());
    EXPECT_TRUE(URL::parse("b/c", u));
    EXPECT_EQ("http|b|80|/c||http://b/c", fields(u));
    EXPECT_FALSE(URL::parse(nullptr, u));
    EXPECT_EQ("invalid|||80|||://", fields(u));
    EXPECT_EQ("invalid|||80|||://", fields(URL()));
    std::unique_ptr<URL> made(URL::parse("http://m:9/z?k"));
    URL copy(*made);
    made.reset();
    EXPECT_EQ("http|m|9|/z|k|http://m:9/z?k", fields(copy));
}

TEST(URLTest, QueryAndPathChanges) {
    const char* appends[][3] = {
        {"a=1", "&c=3", "a=1&c=3"}, {"a=1&", "&c=3", "a=1&c=3"}, {"a=1", "c=3", "a=1&c=3"},
        {"", "&c=3", "c=3"},        {"", "c=3", "c=3"},          {"a=1", "", "a=1"},
        {"a=1", nullptr, "a=1"},    {"a=1", "&", "a=1&"},        {"a=1", "&&c", "a=1&&c"},
    };
    for (auto& c : appends) {
        URL u((std::string("http://h/p?") + c[0]).c_str());
        u.toString();
        u.appendQuery(c[1]);
        EXPECT_EQ(std::string("http://h/p") + (*c[2] ? "?" : "") + c[2], u.toString())
            << c[0] << " + " << (c[1] ? c[1] : "null");
    }

    URL u("http://h/p?old=1");
    u.toString();
    u.setQuery("new=2");
    URL copy(u);
    EXPECT_EQ("new=2|http://h/p?old=1|http://h/p?old=1", // the built text keeps the old query
              std::string(u.getQuery()) + "|" + u.toString() + "|" + copy.toString());
    u.setPath("/q");
    EXPECT_STREQ("http://h/q?new=2", u.toString());
    u.setQuery(nullptr);
    u.setPath(nullptr);
    EXPECT_EQ("http|h|80|||http://h", fields(u));
    URL fresh("http://h/p?old=1");
    fresh.setQuery("new=2");
    EXPECT_STREQ("http://h/p?new=2", fresh.toString()); // nothing cached yet
}

TEST(HeaderMapTest, OrderingValuesAndRawText) {
    HeaderMap h;
    EXPECT_EQ("", h.getRawHeaders());
    for (auto& nv : std::vector<std::pair<const char*, const char*>>{{"x-b", "2"},
                                                                     {"content-type", "text/plain"},
                                                                     {"X-Upper", "u"},
                                                                     {"x-b", "1"},
                                                                     {"\xC3\xA9t\xC3\xA9", "high"},
                                                                     {"accept", nullptr},
                                                                     {"x-a", "a"}})
        h.add(nv.first, nv.second);
    EXPECT_EQ("X-Upper: u\r\naccept: \r\ncontent-type: text/plain\r\nx-a: a\r\nx-b: 2\r\nx-b: 1\r\n"
              "\xC3\xA9t\xC3\xA9: high\r\n",
              h.getRawHeaders());
    std::string names;
    for (HeaderMap::const_iterator it = h.begin(); it != h.end(); ++it)
        names += it->first + "=" + std::to_string(it->second->size()) + ";";
    EXPECT_EQ("X-Upper=1;accept=1;content-type=1;x-a=1;x-b=2;\xC3\xA9t\xC3\xA9=1;6",
              names + std::to_string(h.size()));

    auto text = [](const char* v) { return v ? std::string(v) : "null"; };
    EXPECT_EQ("2|1|null|null|null", text(h.get("x-b")) + "|" + text(h.get("x-b", 1)) + "|" +
                                        text(h.get("x-b", 2)) + "|" + text(h.get("X-B")) + "|" +
                                        text(h.get(nullptr)));
    EXPECT_EQ("2|0|0|1|0|0", std::to_string(h.getCount("x-b")) + "|" + std::to_string(h.getCount("none")) +
                                 "|" + std::to_string(h.getCount(nullptr)) + "|" +
                                 std::to_string(h.has("accept")) + "|" + std::to_string(h.has("Accept")) +
                                 "|" + std::to_string(h.has(nullptr)));
    EXPECT_EQ((std::vector<std::string>{"2", "1"}), *h.getValues("x-b"));
    EXPECT_EQ(nullptr, h.getValues("none"));
    EXPECT_MESSAGE(core::IllegalArgumentException, "HeaderMap: NULL header name", h.add(nullptr, "v"));
    EXPECT_MESSAGE(core::IllegalArgumentException, "HeaderMap: NULL header name", h.set(nullptr, "v"));

    const std::string& cached = h.getRawHeaders();
    h.set("x-b", "only");
    std::string removed = std::to_string(h.remove("accept"));
    removed += std::to_string(h.remove("accept")) + std::to_string(h.remove(nullptr));
    EXPECT_EQ("100", removed);
    EXPECT_EQ(&cached, &h.getRawHeaders());
    EXPECT_EQ("X-Upper: u\r\ncontent-type: text/plain\r\nx-a: a\r\nx-b: only\r\n\xC3\xA9t\xC3\xA9: high\r\n",
              cached);
    h.clear();
    EXPECT_EQ("0|", std::to_string(h.size()) + "|" + h.getRawHeaders());
}

TEST(HeaderMapTest, CopiesAreDeepAndMergesAppend) {
    HeaderMap a;
    a.add("k", "1");
    a.add("m", "x");
    EXPECT_EQ("k: 1\r\nm: x\r\n", a.getRawHeaders());
    HeaderMap b(a);
    b.add("k", "2");
    b.set("m", "y");
    EXPECT_EQ("k: 1\r\nm: x\r\n|k: 1\r\nk: 2\r\nm: y\r\n", a.getRawHeaders() + "|" + b.getRawHeaders());
    a.add(b);
    b.add(b);
    EXPECT_EQ("k: 1\r\nk: 1\r\nk: 2\r\nm: x\r\nm: y\r\n|k: 1\r\nk: 2\r\nk: 1\r\nk: 2\r\nm: y\r\nm: y\r\n",
              a.getRawHeaders() + "|" + b.getRawHeaders());

    HeaderMap c;
    c = a;
    a.clear();
    HeaderMap moved(std::move(c));
    EXPECT_EQ("0||k: 1\r\nk: 1\r\nk: 2\r\nm: x\r\nm: y\r\n",
              std::to_string(c.size()) + "|" + c.getRawHeaders() + "|" + moved.getRawHeaders());
}

TEST(BodyTest, SizeMeasuringAndOwnership) {
    int deaths = 0;
    auto* data = new TrackedStream("0123456789", &deaths);
    char skip[3];
    data->read(skip, 1, 3);
    {
        core::SmartPtr<Body> body(new Body(data, 0));
        unsigned size = body->getSize();
        int tells = data->mTells;
        EXPECT_EQ("1|10|3|10", std::to_string(body->isSizeOK()) + "|" + std::to_string(size) + "|" +
                                   std::to_string(data->ByteInputStream::tell()) + "|" +
                                   std::to_string(body->getSize())); // moved back where it stood
        EXPECT_EQ(tells, data->mTells);                              // measured once
        body->setData(data);                                         // same stream: kept
        EXPECT_EQ(0, deaths);
        body->setData(new TrackedStream("x", &deaths));
        EXPECT_EQ(1, deaths);
    }
    EXPECT_EQ(2, deaths);

    TrackedStream known("abcdef", &deaths);
    {
        Body body(&known, 4, false);
        EXPECT_EQ("4|1|0", std::to_string(body.getSize()) + "|" + std::to_string(body.isSizeOK()) + "|" +
                               std::to_string(known.mTells));
        body.setData(nullptr);
    }
    EXPECT_EQ(2, deaths); // not owned

    auto* blind = new TrackedStream("abc", &deaths, false);
    Body failing(blind, 0);
    unsigned size = failing.getSize();
    int tells = blind->mTells;
    EXPECT_EQ("0|0|0", std::to_string(size) + "|" + std::to_string(failing.isSizeOK()) + "|" +
                           std::to_string(failing.getSize()));
    EXPECT_EQ(tells, blind->mTells); // not measured again
    Body empty(nullptr, 0);
    EXPECT_EQ("0|1", std::to_string(empty.getSize()) + "|" + std::to_string(empty.isSizeOK()));
}

TEST(MessageTest, RequestsResponsesAndSharedBodies) {
    int deaths = 0;
    Body* body = new Body(new TrackedStream("payload", &deaths), 0);
    {
        Request r("http://h:81/p?q", Request::POST);
        EXPECT_EQ("4|http://h:81/p?q|0|0|null", std::to_string(r.getMethod()) + "|" + r.getURL().toString() +
                                                    "|" + std::to_string(r.hasBody()) + "|" +
                                                    std::to_string(r.getContentLength()) + "|" +
                                                    (r.getContentType() ? r.getContentType() : "null"));
        r.setBody(body);
        r.setBody(body);
        r.getHeaders().add(Header::CONTENT_TYPE, "a/b");
        r.setContentType("text/html");
        EXPECT_EQ("1|1|7|text/html|1", std::to_string(body->getRefCount()) + "|" +
                                           std::to_string(r.hasBody()) + "|" +
                                           std::to_string(r.getContentLength()) + "|" + r.getContentType() +
                                           "|" + std::to_string(r.getHeaders().getCount("content-type")));
        Request copy(r);
        Response resp;
        resp.setBody(body);
        copy.getHeaders().set("x", "1");
        EXPECT_EQ("3|0", std::to_string(body->getRefCount()) + "|" + std::to_string(r.getHeaders().has("x")));
        resp.setBody(nullptr);
        Request other(URL("h/o"), Request::GET);
        other = copy;
        EXPECT_EQ("3|4|http://h:81/p?q|1", std::to_string(body->getRefCount()) + "|" +
                                               std::to_string(other.getMethod()) + "|" +
                                               other.getURL().toString() + "|" + other.getHeaders().get("x"));
    }
    EXPECT_EQ(1, deaths); // the last message released the body, which deleted its stream

    std::string words;
    for (int m = 0; m <= 6; ++m)
        words += Request::getMethodWord(m) ? Request::getMethodWord(m) : "null ";
    EXPECT_EQ("null HEAD GET PUT POST CONNECT null ", words);

    Response r;
    EXPECT_EQ("0|", std::to_string(r.getStatusCode()) + "|" + r.getStatusMessage());
    r.setStatus(407, "Proxy Authentication Required");
    EXPECT_EQ("407|Proxy Authentication Required",
              std::to_string(r.getStatus().code) + "|" + r.getStatus().message);
    r.setStatus(200, nullptr);
    Response made(Response::Status{301, "Moved"});
    EXPECT_EQ("200||301|Moved", std::to_string(r.getStatusCode()) + "|" + r.getStatusMessage() + "|" +
                                    std::to_string(made.getStatusCode()) + "|" + made.getStatusMessage());
}

TEST(HTTPExceptionTest, TypeCloneAndRethrow) {
    EXPECT_STREQ("tarso::http::HTTPException", HTTPException::TYPE.getName());
    EXPECT_EQ(&HTTPException::TYPE, core::Type::Reflection()["tarso::http::HTTPException"]);
    EXPECT_TRUE(HTTPException::type().instanceOf(core::Exception::TYPE));
    HTTPException plain("Invalid status code (%s)", "abc");
    EXPECT_EQ(nullptr, plain.getCause());
    core::IllegalStateException cause("closed %d", 1);
    HTTPException caused("Unsupported transfer-encoding: %s", &cause, "gzip");

    std::unique_ptr<core::Exception> clone(caused.clone());
    EXPECT_EQ(&HTTPException::TYPE, &clone->getType());
    EXPECT_EQ(&core::IllegalStateException::TYPE, &clone->getCause()->getType());
    EXPECT_STREQ("closed 1", clone->getCause()->getMessage());
    EXPECT_MESSAGE(HTTPException, "Unsupported transfer-encoding: gzip", clone->rethrow());
    EXPECT_MESSAGE(HTTPException, "Invalid status code (abc)", plain.throwSame());
}
