// Object model: cloning of shared graphs, cloning options, names, factory.
#include "../support/TestSupport.h"
#include <gtest/gtest.h>
#include <string>
#include <tmain/core/NamedObject.h>
#include <tmain/core/ObjectFactory.h>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/SmartPtr.h>

using tarso::core::CloningOptions;
using tarso::core::NamedObject;
using tarso::core::Object;

namespace {

// A node with two children that may be shared; clones each child once.
class Node : public NamedObject {
    TMAIN_TYPE()
public:
    explicit Node(const char* name = "") : NamedObject(name) {}
    core::SmartPtr<Node> left, right;
    Node* buddy = nullptr; // a non-owning reference fixed up by a post processor
    using Object::clone;
    Object* clone(CloningOptions& options) const override {
        Node* copy = new Node();
        _clone(copy, options);
        return copy;
    }

protected:
    void _clone(Object* target, CloningOptions& options) const override {
        Node* t = static_cast<Node*>(target);
        NamedObject::_clone(target, options); // record the pair first: cycles resolve
        t->left = cloneChild(left.get(), options);
        t->right = cloneChild(right.get(), options);
        if (buddy)
            options.addPostProcessor(new FixBuddy(this, t));
    }

private:
    static Node* cloneChild(Node* child, CloningOptions& options) {
        if (!child)
            return nullptr;
        Object* done = options.getCloned(child);
        return static_cast<Node*>(done ? done : child->clone(options));
    }
    struct FixBuddy : CloningOptions::PostProcessor {
        const Node* source;
        Node* copy;
        FixBuddy(const Node* s, Node* c) : source(s), copy(c) {}
        void process(CloningOptions& options) override {
            copy->buddy = static_cast<Node*>(options.getCloned(source->buddy));
        }
    };
};
const core::Type Node::TYPE("test::Node", &NamedObject::TYPE);

TEST(Cloning, SharedChildrenCyclesPairsPostProcessorsAndMessages) {
    core::SmartPtr<Node> root(new Node("root")), shared(new Node("shared"));
    root->left = new Node("a");
    root->right = new Node("b");
    root->left->left = shared;
    root->right->right = shared;
    shared->left = root;                   // a cycle back to the root
    root->right->buddy = root->left.get(); // resolved after the whole graph is cloned
    core::SmartPtr<Node> copy(static_cast<Node*>(root->clone()));
    ASSERT_TRUE(copy && copy != root);
    // One copy of the shared node, the cycle pointing at the copy, the buddy fixed by the post processor.
    EXPECT_JOINED("root|shared|1|0|1|1|", copy->getName(), copy->left->left->getName(),
                  copy->left->left == copy->right->right, shared == copy->left->left,
                  copy == copy->left->left->left, copy->left.get() == copy->right->buddy);
    // Break the cycles so the counts can reach zero.
    shared->left = nullptr;
    copy->left->left->left = nullptr;
    // Pairs can be taken back; a removed post processor is deleted, not run.
    struct Probe : CloningOptions::PostProcessor {
        int* runs;
        explicit Probe(int* r) : runs(r) {}
        void process(CloningOptions&) override { ++*runs; }
    };
    Object src, dst;
    int runs = 0;
    {
        CloningOptions o;
        o.addCloningPair(&src, &dst);
        const bool paired = o.getCloned(&src) == &dst;
        o.removeCloningPair(&src);
        EXPECT_TRUE(paired && o.getCloned(&src) == nullptr);
        auto* removed = new Probe(&runs);
        o.addPostProcessor(removed);
        o.removePostProcessor(removed);
        o.addPostProcessor(new Probe(&runs));
    }
    EXPECT_EQ(1, runs);
    Object plain;
    EXPECT_MESSAGE(core::Exception, "Unsupported cloning operation for tarso::core::Object instance ",
                   plain.clone());
    std::string s = NamedObject("hello").toString();
    EXPECT_EQ(0u, s.find("tarso::core::NamedObject@[0x"));
    EXPECT_EQ(s.size() - strlen("]<name='hello'>"), s.find("]<name='hello'>"));
}

struct Opt : CloningOptions::Option {
    static int deleted;
    int tag;
    Opt(bool owned, int t) : Option(owned), tag(t) {}
    ~Opt() override { ++deleted; }
};
int Opt::deleted = 0;

TEST(CloningOptions, OwnershipSearchAndRemoval) {
    Opt::deleted = 0;
    Opt notOwned(false, 9);
    {
        CloningOptions o;
        EXPECT_EQ(nullptr, o.put(&NamedObject::TYPE, new Opt(true, 1)));
        // Replacing an owned option deletes it.
        Opt* two = new Opt(true, 2);
        EXPECT_EQ(nullptr, o.put(&NamedObject::TYPE, two));
        EXPECT_EQ(1, Opt::deleted);
        // get with and without the parents.
        EXPECT_TRUE(!o.get(&Node::TYPE, false) && o.get(&Node::TYPE, true) == two &&
                    !o.containsKey(&Node::TYPE));
        // An option that is not owned is handed back when replaced...
        o.put(&Object::TYPE, &notOwned);
        EXPECT_EQ(&notOwned, o.put(&Object::TYPE, new Opt(true, 3)));
        EXPECT_EQ(1, Opt::deleted);
        o.put(&Object::TYPE, &notOwned); // owned 3 deleted
        EXPECT_EQ(2, Opt::deleted);
        // ...and left in place by remove.
        o.remove(&Node::TYPE, true);
        EXPECT_JOINED("0|1|3|", o.containsKey(&NamedObject::TYPE), o.containsKey(&Object::TYPE),
                      Opt::deleted);
        o.put(&NamedObject::TYPE, new Opt(true, 4));
    }
    EXPECT_EQ(4, Opt::deleted); // destruction deletes the owned one only
    static const core::Type a("test::A"), b("test::B");
    static const core::Type twoParents("test::AB", &a, &b);
    std::string thrown;
    try {
        CloningOptions().get(&twoParents, true);
    } catch (const std::string& s) {
        thrown = s;
    }
    EXPECT_EQ("test::AB has multiple inheritance", thrown);
}

TEST(ObjectFactory, CreatesRegisteredClassesByName) {
    tarso::core::ObjectFactory<Object> factory;
    core::SmartPtr<Object> n(factory.create("tarso::core::NamedObject"));
    ASSERT_TRUE(n && &n->getType() == &NamedObject::TYPE);
    // Unknown, reflected but not registered, not an Object.
    EXPECT_TRUE(!factory.create("no::Such") && !factory.create("test::Node") &&
                !factory.create("core::Exception"));
    tarso::core::ObjectRegistry::registerCreatable(Node::TYPE, []() -> Object* { return new Node("made"); });
    core::SmartPtr<Object> made(factory.create("test::Node"));
    ASSERT_TRUE(made);
    EXPECT_STREQ("made", static_cast<Node*>(made.get())->getName());
    tarso::core::ObjectRegistry::unregisterCreatable(Node::TYPE);
    tarso::core::ObjectFactory<NamedObject> named;
    EXPECT_EQ(nullptr, named.create("tarso::core::Object")); // not a NamedObject
}

} // namespace
