#include <tmain/core/CloningOptions.h>

#include <string>

namespace tarso {
namespace core {

CloningOptions::Option::~Option() {}
CloningOptions::PostProcessor::~PostProcessor() {}

CloningOptions::CloningOptions() {}

// A copy shares the option records (it does not own them) and the cloning
// pairs; post processors belong to the original only.
CloningOptions::CloningOptions(const CloningOptions& other) : mCloningPairs(other.mCloningPairs) {
    for (auto& kv : other.mOptions)
        if (kv.second && !kv.second->isOwned())
            mOptions[kv.first] = kv.second;
}

CloningOptions& CloningOptions::operator=(const CloningOptions& other) {
    if (this != &other) {
        for (auto& kv : mOptions)
            if (kv.second && kv.second->isOwned())
                delete kv.second;
        mOptions.clear();
        for (auto& kv : other.mOptions)
            if (kv.second && !kv.second->isOwned())
                mOptions[kv.first] = kv.second;
        mCloningPairs = other.mCloningPairs;
    }
    return *this;
}

CloningOptions::~CloningOptions() {
    // Post processors first, while every cloning pair is still known.
    for (PostProcessor* p : mPostProcessors)
        p->process(*this);
    for (PostProcessor* p : mPostProcessors)
        delete p;
    mPostProcessors.clear();
    for (auto& kv : mOptions)
        if (kv.second && kv.second->isOwned())
            delete kv.second;
    mOptions.clear();
    mCloningPairs.clear();
}

CloningOptions::Option* CloningOptions::put(const ::core::Type* type, Option* option) {
    Option* previous = nullptr;
    auto it = mOptions.find(type);
    if (it != mOptions.end())
        previous = it->second;
    mOptions[type] = option;
    if (previous && previous != option && previous->isOwned()) {
        delete previous;
        return nullptr;
    }
    return previous == option ? nullptr : previous;
}

CloningOptions::Option* CloningOptions::get(const ::core::Type* type, bool searchParents) const {
    for (const ::core::Type* t = type; t;) {
        auto it = mOptions.find(t);
        if (it != mOptions.end() && it->second)
            return it->second;
        if (!searchParents)
            return nullptr;
        if (t->getParentCount() > 1)
            throw std::string(t->getName()) + " has multiple inheritance";
        t = t->getParent(0);
    }
    return nullptr;
}

bool CloningOptions::containsKey(const ::core::Type* type) const {
    return mOptions.count(type) != 0;
}

void CloningOptions::remove(const ::core::Type* type, bool withParents) {
    for (const ::core::Type* t = type; t;) {
        Option* o = get(t, false);
        if (o && o->isOwned()) {
            mOptions.erase(t);
            delete o;
        }
        if (!withParents)
            break;
        if (t->getParentCount() > 1)
            throw std::string(t->getName()) + " has multiple inheritance";
        t = t->getParent(0);
    }
}

void CloningOptions::addPostProcessor(PostProcessor* p) {
    if (p)
        mPostProcessors.insert(p);
}

void CloningOptions::removePostProcessor(PostProcessor* p) {
    if (mPostProcessors.erase(p))
        delete p;
}

void CloningOptions::addCloningPair(const Object* source, Object* copy) {
    mCloningPairs[source] = copy;
}

void CloningOptions::removeCloningPair(const Object* source) {
    mCloningPairs.erase(source);
}

Object* CloningOptions::getCloned(const Object* source) const {
    auto it = mCloningPairs.find(source);
    return it == mCloningPairs.end() ? nullptr : it->second;
}

} // namespace core
} // namespace tarso
