#pragma once
#include <map>
#include <set>
#include <tmain/foundation/Type.h>

namespace tarso {
namespace core {

class Object;

/// Per-type cloning options, the table of copies already made (so shared
/// sub-objects are cloned once), and post processors that run when the
/// options are destroyed.
class TMAIN_API CloningOptions {
public:
    /// Base of the per-type option records that clone implementations define.
    class TMAIN_API Option {
    public:
        /// owned: the options delete this record when it is replaced, removed
        /// or the options are destroyed.
        explicit Option(bool owned) : mOwned(owned) {}
        virtual ~Option();
        bool isOwned() const { return mOwned; }

    private:
        bool mOwned;
    };

    /// A step run when the options are destroyed, with every cloning pair
    /// still known: the place to fix up references between copies.
    class TMAIN_API PostProcessor {
    public:
        virtual ~PostProcessor();
        virtual void process(CloningOptions& options) = 0;
    };

    CloningOptions();
    CloningOptions(const CloningOptions& other);
    CloningOptions& operator=(const CloningOptions& other);
    virtual ~CloningOptions();

    /// Stores the option; an owned previous option is deleted (null is
    /// returned), one that is not owned is handed back.
    Option* put(const ::core::Type* type, Option* option);
    /// The option for the type, searching the parent records when asked.
    /// Throws a std::string "<type name> has multiple inheritance" when the
    /// walk meets a record with more than one parent.
    Option* get(const ::core::Type* type, bool searchParents) const;
    bool containsKey(const ::core::Type* type) const;
    /// Deletes the owned option of the type (and of each parent when asked);
    /// options that are not owned stay in the table.
    void remove(const ::core::Type* type, bool withParents);

    void addPostProcessor(PostProcessor* p);
    void removePostProcessor(PostProcessor* p);

    void addCloningPair(const Object* source, Object* copy);
    void removeCloningPair(const Object* source);
    Object* getCloned(const Object* source) const;

private:
    std::map<const ::core::Type*, Option*> mOptions;
    std::set<PostProcessor*> mPostProcessors;
    std::map<const Object*, Object*> mCloningPairs;
};

} // namespace core
} // namespace tarso
