// URLs, header maps, bodies, messages and the HTTP exception.
#include "../support/TestSupport.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
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
using tmaintest::cat;

namespace {

// All parts and the text form; "SIZES|" when a size accessor disagrees (user
// name and password must stay empty).
std::string fields(const URL& u) {
    bool sizes =
        u.getSchemeSize() == strlen(u.getScheme()) && u.getHostSize() == strlen(u.getHost()) &&
        u.getPathSize() == strlen(u.getPath()) && u.getQuerySize() == strlen(u.getQuery()) &&
        u.getUserNameSize() + u.getPasswordSize() + strlen(u.getUserName()) + strlen(u.getPassword()) == 0;
    return std::string(u.isValid() ? "" : "invalid|") + (sizes ? "" : "SIZES|") +
           cat{u.getScheme(), u.getHost(), u.getPort(), u.getPath(), u.getQuery(), u.toString()};
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
        {"h/a?b=1", "http|h|80|/a|b=1|http://h/a?b=1|"},
        {"/local/file", "file||80|/local/file||file:///local/file|"},
        {"http://h:8080", "http|h|8080|/||http://h:8080/|"},
        {"https://secure.example/x", "https|secure.example|80|/x||https://secure.example/x|"},
        {"http://h:80/p", "http|h|80|/p||http://h/p|"},
        {"http://h:0/p", "http|h|0|/p||http://h/p|"},
        {"http://h:65535/p", "http|h|65535|/p||http://h:65535/p|"},
        {"http://h:65536/p", "http|h|65536|/p||http://h/p|"},
        {"http://h:99999999999999/p", "http|h|4294967295|/p||http://h/p|"},
        {"http://user:pw@h/p", "http|user:pw@h|80|/p||http://user:pw@h/p|"},
        {"http://h:12a:4/x", "http|h|12|/x||http://h:12/x|"},
        {"localhost:8080/x?y", "http|localhost|8080|/x|y|http://localhost:8080/x?y|"},
        {"mailto:x@y", "http|mailto:x@y|80|/||http://mailto:x@y/|"},
        {"file:///c/d", "file||80|/c/d||file:///c/d|"},
        {"http:/h/x", "http||80|/h/x||http:///h/x|"},
        {"ftp://h/a?b?c/d", "ftp|h|80|/a|b?c/d|ftp://h/a?b?c/d|"},
        {"h?q=/s", "http|h|80|/|q=/s|http://h/?q=/s|"},
        {"http://h?", "http|h|80|/||http://h/|"},
        {"http://h/a#frag", "http|h|80|/a#frag||http://h/a#frag|"},
        {"", "http||80|/||http:///|"},
    };
    for (auto& c : cases)
        EXPECT_EQ(c[1], fields(URL(c[0]))) << c[0];

    // Parsing into a used URL leaves no trace of its port, query or cached text.
    URL u("https://a:81/p?q=1");
    std::unique_ptr<URL> made(URL::parse("http://m:9/z?k"));
    URL copy(*made);
    made.reset();
    EXPECT_JOINED("https://a:81/p?q=1|1|http|b|80|/c||http://b/c||0|invalid|||80|||://||invalid|||80|||://||"
                  "http|m|9|/z|k|http://m:9/z?k||",
                  u.toString(), URL::parse("b/c", u), fields(u), URL::parse(nullptr, u), fields(u),
                  fields(URL()), fields(copy));
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
            << c[0] << " + " << cat{c[1]};
    }

    // setQuery keeps a text already built (in copies too), setPath rebuilds it.
    URL u("http://h/p?old=1"), fresh("http://h/p?old=1");
    u.toString();
    u.setQuery("new=2");
    fresh.setQuery("new=2");
    EXPECT_JOINED("new=2|http://h/p?old=1|http://h/p?old=1|http://h/p?new=2|", u.getQuery(), u.toString(),
                  URL(u).toString(), fresh.toString());
    u.setPath("/q");
    EXPECT_STREQ("http://h/q?new=2", u.toString());
    u.setQuery(nullptr);
    u.setPath(nullptr);
    EXPECT_EQ("http|h|80|||http://h|", fields(u));
}

TEST(HeaderMapTest, OrderingValuesAndRawText) {
    HeaderMap h;
    const char* added[][2] = {{"x-b", "2"}, {"content-type", "text/plain"}, {"X-Upper", "u"},
                              {"x-b", "1"}, {"\xC3\xA9t\xC3\xA9", "high"},  {"accept", nullptr},
                              {"x-a", "a"}};
    for (auto& nv : added)
        h.add(nv[0], nv[1]);
    EXPECT_JOINED("X-Upper: u\r\naccept: \r\ncontent-type: text/plain\r\nx-a: a\r\nx-b: 2\r\nx-b: 1\r\n"
                  "\xC3\xA9t\xC3\xA9: high\r\n|6|X-Upper|\xC3\xA9t\xC3\xA9|1|",
                  h.getRawHeaders(), h.size(), h.begin()->first, (--h.end())->first,
                  (--h.end())->second->size());
    EXPECT_JOINED("2|1|null|null|null|2|0|0|1|0|0|1|1|", h.get("x-b"), h.get("x-b", 1), h.get("x-b", 2),
                  h.get("X-B"), h.get(nullptr), h.getCount("x-b"), h.getCount("none"), h.getCount(nullptr),
                  h.has("accept"), h.has("Accept"), h.has(nullptr),
                  *h.getValues("x-b") == std::vector<std::string>{"2", "1"}, !h.getValues("none"));
    EXPECT_MESSAGE(core::IllegalArgumentException, "HeaderMap: NULL header name", h.add(nullptr, "v"));
    EXPECT_MESSAGE(core::IllegalArgumentException, "HeaderMap: NULL header name", h.set(nullptr, "v"));

    // The text is rebuilt in place after each change.
    const std::string& cached = h.getRawHeaders();
    h.set("x-b", "only");
    EXPECT_JOINED("X-Upper: u\r\naccept: \r\ncontent-type: text/plain\r\nx-a: a\r\nx-b: "
                  "only\r\n\xC3\xA9t\xC3\xA9: high\r\n|"
                  "1|0|0|1|X-Upper: u\r\ncontent-type: text/plain\r\nx-a: a\r\nx-b: "
                  "only\r\n\xC3\xA9t\xC3\xA9: high\r\n|",
                  h.getRawHeaders(), h.remove("accept"), h.remove("accept"), h.remove(nullptr),
                  &cached == &h.getRawHeaders(), cached);
    h.clear();
    EXPECT_JOINED("0||", h.size(), h.getRawHeaders());
}

TEST(HeaderMapTest, CopiesAreDeepAndMergesAppend) {
    HeaderMap a;
    a.add("k", "1");
    a.add("m", "x");
    a.getRawHeaders();
    HeaderMap b(a);
    b.add("k", "2");
    b.set("m", "y");
    EXPECT_JOINED("k: 1\r\nm: x\r\n|k: 1\r\nk: 2\r\nm: y\r\n|", a.getRawHeaders(), b.getRawHeaders());
    a.add(b);
    b.add(b);
    HeaderMap c;
    c = a;
    a.clear();
    HeaderMap moved(std::move(c));
    EXPECT_JOINED(
        "k: 1\r\nk: 2\r\nk: 1\r\nk: 2\r\nm: y\r\nm: y\r\n|0||k: 1\r\nk: 1\r\nk: 2\r\nm: x\r\nm: y\r\n|",
        b.getRawHeaders(), c.size(), c.getRawHeaders(), moved.getRawHeaders());
}

TEST(BodyTest, SizeMeasuringAndOwnership) {
    int deaths = 0;
    auto* data = new TrackedStream("0123456789", &deaths);
    auto* blind = new TrackedStream("abc", &deaths, false);
    TrackedStream known("abcdef", &deaths);
    char skip[3];
    data->read(skip, 1, 3);
    {
        // Measured once and moved back where it stood; a known size is never
        // measured, a failed measure not repeated.
        core::SmartPtr<Body> body(new Body(data, 0));
        Body fixed(&known, 4, false), failing(blind, 0), empty(nullptr, 0);
        unsigned size = body->getSize(), failed = failing.getSize();
        int tells = data->mTells, blindTells = blind->mTells;
        EXPECT_JOINED("10|1|3|10|0|4|1|0|0|0|0|0|0|1|", size, body->isSizeOK(), data->ByteInputStream::tell(),
                      body->getSize(), data->mTells - tells, fixed.getSize(), fixed.isSizeOK(), known.mTells,
                      failed, failing.isSizeOK(), failing.getSize(), blind->mTells - blindTells,
                      empty.getSize(), empty.isSizeOK());
        body->setData(data); // same stream: kept
        int kept = deaths;
        body->setData(new TrackedStream("x", &deaths));
        fixed.setData(nullptr);
        EXPECT_JOINED("0|1|", kept, deaths);
    }
    EXPECT_EQ(3, deaths); // owned streams only
}

TEST(MessageTest, RequestsResponsesAndSharedBodies) {
    int deaths = 0;
    Body* body = new Body(new TrackedStream("payload", &deaths), 0);
    {
        Request r("http://h:81/p?q", Request::POST);
        EXPECT_JOINED("0|0|null|", r.hasBody(), r.getContentLength(), r.getContentType());
        r.setBody(body);
        r.setBody(body);
        int references = body->getRefCount();
        r.getHeaders().add(Header::CONTENT_TYPE, "a/b");
        r.setContentType("text/html");
        Request copy(r);
        Response resp;
        resp.setBody(body);
        copy.getHeaders().set("x", "1");
        EXPECT_JOINED("1|1|7|text/html|1|3|0|", references, r.hasBody(), r.getContentLength(),
                      r.getContentType(), r.getHeaders().getCount("content-type"), body->getRefCount(),
                      r.getHeaders().has("x"));
        resp.setBody(nullptr);
        Request other(URL("h/o"), Request::GET);
        other = copy;
        EXPECT_JOINED("3|4|http://h:81/p?q|1|", body->getRefCount(), other.getMethod(),
                      other.getURL().toString(), other.getHeaders().get("x"));
    }
    EXPECT_EQ(1, deaths); // the last message released the body, which deleted its stream

    std::string words;
    for (int m = 0; m <= 6; ++m)
        words += cat{Request::getMethodWord(m)};
    EXPECT_EQ("null|HEAD |GET |PUT |POST |CONNECT |null|", words);

    Response r, made(Response::Status{301, "Moved"});
    std::string initial = cat{r.getStatusCode(), r.getStatusMessage()};
    r.setStatus(407, "Proxy Authentication Required");
    r.setStatus(200, nullptr);
    EXPECT_JOINED("0|||200||301|Moved|", initial, r.getStatusCode(), r.getStatusMessage(),
                  made.getStatus().code, made.getStatus().message);
}

TEST(HTTPExceptionTest, TypeCloneAndRethrow) {
    HTTPException plain("Invalid status code (%s)", "abc");
    core::IllegalStateException cause("closed %d", 1);
    std::unique_ptr<core::Exception> clone(
        HTTPException("Unsupported transfer-encoding: %s", &cause, "gzip").clone());
    EXPECT_JOINED("tarso::http::HTTPException|1|1|1|1|1|closed 1|", HTTPException::TYPE.getName(),
                  &HTTPException::TYPE == core::Type::Reflection()["tarso::http::HTTPException"],
                  HTTPException::type().instanceOf(core::Exception::TYPE), !plain.getCause(),
                  &clone->getType() == &HTTPException::TYPE,
                  &clone->getCause()->getType() == &core::IllegalStateException::TYPE,
                  clone->getCause()->getMessage());
    EXPECT_MESSAGE(HTTPException, "Unsupported transfer-encoding: gzip", clone->rethrow());
    EXPECT_MESSAGE(HTTPException, "Invalid status code (abc)", plain.throwSame());
}
