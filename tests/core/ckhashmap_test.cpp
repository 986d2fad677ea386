#include <gtest/gtest.h>
#include <tmain/core/CKHashMap.h>

#include <string>
#include <vector>

namespace {

typedef core::CKHashMapValue<std::string> StringMap;

// Records every lost value and numbers the keys it resolves.
class Recorder : public core::CKHashMapBase<std::string> {
public:
    explicit Recorder(bool notifyLost) : core::CKHashMapBase<std::string>(notifyLost, "none") {}
    ~Recorder() override { clear(); }
    std::string resolve(const char* key) override {
        return std::string(key) + "#" + std::to_string(++mResolved);
    }
    void handleLost(std::string value) const override { mLost.push_back(value); }
    int mResolved = 0;
    mutable std::vector<std::string> mLost;
};

std::vector<std::string> keysOf(const core::CKHashMapBase<std::string>& map) {
    std::vector<std::string> keys;
    for (auto it = map.begin(); it != map.end(); ++it)
        keys.push_back(std::string(it->first) + "=" + it->second);
    return keys;
}

TEST(CKHashMap, PutGetRemoveAndOrder) {
    StringMap map(false, "dflt");
    EXPECT_TRUE(map.empty() && map.size() == 0 && !map.containsKey("missing"));
    EXPECT_EQ("dflt", map.get("missing"));
    char key[] = "abc";
    EXPECT_FALSE(map.put(key, "lower"));
    key[0] = 'z'; // the map keeps its own copy
    EXPECT_FALSE(map.put(std::string("Abc"), "upper"));
    EXPECT_FALSE(map.put("", "empty"));
    EXPECT_FALSE(map.put("ab", "short"));
    EXPECT_TRUE(map.put("abc", "lower2"));
    EXPECT_EQ((std::vector<std::string>{"=empty", "Abc=upper", "ab=short", "abc=lower2"}), keysOf(map));
    EXPECT_EQ("upper dflt", map.get("Abc") + " " + map.get("ABC")); // keys are case-sensitive
    // Re-putting and removing through the map's own key buffer must not
    // touch freed memory.
    EXPECT_TRUE(map.put(map.begin()->first, "again"));
    EXPECT_TRUE(map.remove(map.begin()->first));
    EXPECT_TRUE(map.remove("ab"));
    EXPECT_FALSE(map.remove("ab") || map.remove(nullptr));
    EXPECT_EQ((std::vector<std::string>{"Abc=upper", "abc=lower2"}), keysOf(map));
    EXPECT_EQ("dflt", map.get(nullptr));
    EXPECT_THROW(map.put(nullptr, "x"), core::IllegalArgumentException);
    EXPECT_THROW(map[static_cast<const char*>(nullptr)], core::IllegalArgumentException);
}

TEST(CKHashMap, LostValuesAndResolve) {
    for (bool notify : {true, false}) {
        Recorder map(notify);
        map.put("k", "v1");
        EXPECT_TRUE(map.put("k", "v2"));
        EXPECT_FALSE(map.remove("nope"));
        map.put("gone", "g");
        EXPECT_TRUE(map.remove("gone"));
        // get neither resolves nor inserts; operator[] stores what resolve gives.
        EXPECT_EQ("none", map.get("x"));
        EXPECT_FALSE(map.containsKey("x"));
        EXPECT_EQ("x#1 x#1", map["x"] + " " + map[std::string("x")]);
        EXPECT_TRUE(map.put("k", "k2"));
        EXPECT_EQ("k2", map["k"]);
        EXPECT_EQ(1, map.mResolved);
        EXPECT_EQ((std::vector<std::string>{"k=k2", "x=x#1"}), keysOf(map));
        map.clear();
        EXPECT_TRUE(map.empty());
        if (notify)
            EXPECT_EQ((std::vector<std::string>{"v1", "g", "v2", "k2", "x#1"}), map.mLost);
        else
            EXPECT_TRUE(map.mLost.empty());
    }
}

TEST(CKHashMap, CopiesAreIndependent) {
    StringMap original(true, "d1");
    original.put("a", "1");
    original.put("b", "2");
    StringMap copy(original);
    copy.put("a", "changed");
    copy.remove("b");
    copy.put("c", "3");
    EXPECT_EQ((std::vector<std::string>{"a=1", "b=2"}), keysOf(original));
    EXPECT_EQ((std::vector<std::string>{"a=changed", "c=3"}), keysOf(copy));
    EXPECT_NE(original.begin()->first, copy.begin()->first);
    StringMap assigned(false, "d2");
    assigned.put("old", "x");
    assigned = original;
    StringMap& alias = assigned;
    assigned = alias;
    EXPECT_EQ("d1", assigned.get("old")); // the default value comes along
    original.clear();
    EXPECT_EQ((std::vector<std::string>{"a=1", "b=2"}), keysOf(assigned));
    // Copies of a subclass keep its hooks and the notify flag.
    Recorder source(true);
    source.put("k", "v");
    Recorder twin(source);
    twin.put("k", "w");
    EXPECT_EQ((std::vector<std::string>{"v"}), twin.mLost);
    EXPECT_TRUE(source.mLost.empty());
}

} // namespace
