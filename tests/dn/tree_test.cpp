#include "dn/DNMemoryDataValue.h"
#include "dn/DNMemoryIterator.h"
#include "dn/DNMemoryValue.h"
#include "dn/DNMessages.h"
#include "dn/DNStdIndexedValue.h"
#include "dn/DNTree.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

DNValueRef Leaf(int32_t number) {
    return new DNMemoryDataValue(DNData::Int(number));
}

/// The values' numbers in order.
std::string Numbers(const DNValueRef& folder) {
    std::string text;
    for (size_t i = 0; i < folder->GetChildCount(); ++i) {
        text += std::to_string(folder->At(i)->GetValue()->GetInt()) + " ";
    }
    return text;
}

DNValueRef Filled(int32_t count) {
    DNValueRef folder(new DNMemoryValue);
    for (int32_t i = 0; i < count; ++i) {
        folder->Set(DNData::Int(i), Leaf(i));
    }
    return folder;
}

/// Collects the names and indices of what it is told.
class Listener : public CXMessageTarget {
public:
    CXResult ProcessMessage(const CXMessage& message) override {
        const auto indexOf = [](const auto& change) { return std::to_string(change.GetIndex()); };
        heard += Text(message.GetName());
        if (message.Is("DNValue::addChild")) {
            heard += " " + indexOf(static_cast<const DNValueAddChildMessage&>(message));
        } else if (message.Is("DNValue::removeChild")) {
            heard += " " + indexOf(static_cast<const DNValueRemoveChildMessage&>(message));
        }
        heard += ";";
        if (keep && message.Is("DNValue::releaseValue")) {
            kept = static_cast<const CXMessageDNValueParam&>(message).GetValue();
        }
        return kCXResultOK;
    }

    std::string Take() { return std::exchange(heard, std::string()); }

    std::string heard;
    bool keep = false;
    DNValueRef kept;
};

TEST(DNValue, FolderOperations) {
    DNValueRef folder = Filled(3);
    folder->Set("1", Leaf(11)); // a text is another key than a number
    EXPECT_EQ(Numbers(folder), "0 1 2 11 ");
    folder->Set(DNData::Int(1), Leaf(21));
    EXPECT_EQ(Numbers(folder), "0 21 2 11 ");
    EXPECT_EQ(folder->Get("1")->GetInt(), 11);
    EXPECT_EQ(folder->Get(DNData::Int(1))->GetInt(), 21);

    const DNValueRef missing = folder->Get("missing");
    EXPECT_EQ(missing->GetType(), kDNTypeNone);
    EXPECT_EQ(missing.Get(), DNValue::SharedEmpty());
    EXPECT_FALSE(missing.IsSet());
    EXPECT_EQ(missing->Get("deeper")->Get("still")->GetInt(4), 4);
    missing->SetData(DNData::Int(1)); // must not stick
    EXPECT_EQ(DNValueRef()->GetType(), kDNTypeNone);

    EXPECT_TRUE(folder->At(4)->IsEnd());
    EXPECT_TRUE(folder->Find("missing")->IsEnd());
    const DNIteratorRef created = folder->FindOrCreate(DNData::String("new"));
    EXPECT_EQ(folder->GetChildCount(), 5u);
    EXPECT_EQ(created->GetValue()->GetType(), kDNTypeNone);
    created->SetValue(Leaf(5));
    EXPECT_EQ(folder->Get("new")->GetInt(), 5);
    EXPECT_EQ(folder->GetKey(created), DNData::String("new"));
    EXPECT_EQ(folder->GetChild(created)->GetInt(), 5);

    // An entry's folder takes the place of a leaf, and stays the same afterwards.
    const DNValueRef below = folder->GetOrCreateFolder(DNData::String("new"));
    EXPECT_EQ(folder->Get("new"), below);
    EXPECT_EQ(folder->GetOrCreateFolder(DNData::String("new")), below);
    EXPECT_EQ(Text(folder->GetTypeText()), "folder");
    EXPECT_EQ(folder->GetData(), DNData::Folder());

    folder->RemoveAll();
    EXPECT_EQ(folder->GetChildCount(), 0u);
    EXPECT_TRUE(folder->Get("new")->Get("x")->GetString().IsEmpty());
}

TEST(DNIterator, SurvivesChanges) {
    // Below and above the size from which keys are found by an index.
    for (const int32_t count : {6, 200}) {
        const DNValueRef folder = Filled(count);
        const DNIteratorRef first = folder->First();
        const DNIteratorRef second = folder->At(1);
        const DNIteratorRef fourth = folder->At(3);
        const DNIteratorRef last = folder->At(static_cast<size_t>(count) - 1);
        const DNIteratorRef end = folder->End();

        const DNIteratorRef next = folder->Remove(folder->Find(DNData::Int(1)));
        EXPECT_EQ(next->GetValue()->GetInt(), 2);
        EXPECT_EQ(first->GetValue()->GetInt(), 0);
        EXPECT_EQ(second->GetValue()->GetInt(), 2) << "its entry went: it stands on the next";
        EXPECT_EQ(fourth->GetValue()->GetInt(), 3);
        EXPECT_EQ(last->GetValue()->GetInt(), count - 1);
        EXPECT_TRUE(end->IsEnd());
        EXPECT_TRUE(folder->Get(DNData::Int(1))->GetData().IsNone());
        EXPECT_EQ(folder->Get(DNData::Int(count - 1))->GetInt(), count - 1);

        EXPECT_TRUE(last->Remove()->IsEnd());
        EXPECT_TRUE(last->IsEnd());
        folder->Set("late", Leaf(7));
        EXPECT_TRUE(last->IsEnd()) << "must not meet an entry that was added later";
        EXPECT_TRUE(end->IsEnd());
        end->SetKey(DNData::String("appended"));
        end->SetValue(Leaf(8));
        EXPECT_EQ(folder->Get("appended")->GetInt(), 8);
        EXPECT_EQ(folder->At(folder->GetChildCount() - 1)->GetKey(), DNData::String("appended"));

        // A replaced key is found under its new name alone.
        first->SetKey(DNData::String("renamed"));
        EXPECT_EQ(folder->Find("renamed")->GetValue()->GetInt(), 0);
        EXPECT_TRUE(folder->Find(DNData::Int(0))->IsEnd());

        const DNValueRef other = Filled(3);
        EXPECT_TRUE(other->Remove(first)->IsEnd()) << "an iterator of another folder";
        EXPECT_EQ(other->GetChildCount(), 3u);
    }
    // An iterator keeps its folder alive.
    DNIteratorRef alone = Filled(2)->First();
    alone->Next();
    EXPECT_EQ(alone->GetValue()->GetInt(), 1);
    alone->Next();
    alone->Next();
    EXPECT_TRUE(alone->IsEnd());
    EXPECT_TRUE(DNIteratorRef()->IsEnd());
    EXPECT_EQ(Text(DNIteratorRef()->GetDebugText()), "DNIterator{}");
}

/// Keys are found whatever happened before; the model is a plain list.
TEST(DNMemoryValue, AgreesWithAModel) {
    const unsigned seed = 20240501;
    SCOPED_TRACE(seed);
    std::srand(seed);
    std::vector<std::pair<int32_t, int32_t>> model;
    const DNValueRef folder(new DNMemoryValue);
    for (int32_t step = 0; step < 4000; ++step) {
        const int32_t key = std::rand() % 60;
        const auto found = std::find_if(model.begin(), model.end(),
                                        [key](const auto& entry) { return entry.first == key; });
        if (std::rand() % 5 < 3) {
            folder->Set(DNData::Int(key), Leaf(step));
            if (found == model.end()) {
                model.emplace_back(key, step);
            } else {
                found->second = step;
            }
        } else {
            folder->Remove(folder->Find(DNData::Int(key)));
            if (found != model.end()) {
                model.erase(found);
            }
        }
        ASSERT_EQ(folder->GetChildCount(), model.size());
        for (size_t i = 0; i < model.size(); ++i) {
            ASSERT_EQ(folder->KeyAt(i), DNData::Int(model[i].first));
            ASSERT_EQ(folder->Get(DNData::Int(model[i].first))->GetInt(), model[i].second);
        }
    }
}

TEST(DNValue, Messages) {
    Listener listener;
    DNValueRef folder(new DNMemoryValue);
    folder->AddListener(&listener);
    folder->Set("a", Leaf(1));
    EXPECT_EQ(listener.Take(), "DNValue::addChild 0;");
    folder->Set("a", Leaf(2));
    EXPECT_EQ(listener.Take(), "DNIterator::valueChanged;");
    folder->FindOrCreate(DNData::String("b"))->SetValue(Leaf(3));
    EXPECT_EQ(listener.Take(), "DNValue::addChild 1;DNIterator::valueChanged;");
    folder->At(1)->SetKey(DNData::String("c"));
    EXPECT_EQ(listener.Take(), "DNIterator::keyChanged;");
    folder->At(0)->Remove();
    EXPECT_EQ(listener.Take(), "DNValue::removeChild 0;");
    DNValueRef leaf = folder->Get("c");
    leaf->SetData(DNData::Int(4));
    EXPECT_EQ(listener.Take(), "");
    leaf->AddListener(&listener);
    leaf->SetData(DNData::Int(4));
    EXPECT_EQ(listener.Take(), "DNValue::valueChanged;");

    folder.Clear();
    EXPECT_EQ(listener.Take(), "DNValue::releaseValue;") << "the leaf is still held";
    listener.keep = true;
    leaf.Clear();
    EXPECT_EQ(listener.Take(), "DNValue::releaseValue;");
    EXPECT_EQ(listener.kept->GetInt(), 4) << "a listener may keep what is being released";
    listener.keep = false;
    listener.kept.Clear();
    EXPECT_EQ(listener.Take(), "DNValue::releaseValue;");
}

TEST(DNTree, ForwardsChangesFromAnywhereBelow) {
    Listener listener;
    DNTree tree;
    tree.AddListener(&listener);
    const DNValueRef below = tree.GetRoot()->GetOrCreateFolder(DNData::String("below"));
    listener.Take();
    below->Set("x", Leaf(1));
    EXPECT_EQ(listener.Take(), "DNValue::addChild 0;");
    const DNValueRef leaf = below->Get("x");
    leaf->SetData(DNData::Int(2));
    EXPECT_EQ(listener.Take(), "DNValue::valueChanged;");
    below->Set("x", Leaf(3));
    listener.Take();
    leaf->SetData(DNData::Int(4)); // no longer in the tree
    EXPECT_EQ(listener.Take(), "");
    tree.GetRoot()->RemoveAll();
    EXPECT_EQ(listener.Take(), "DNValue::removeChild 0;");
    below->Set("y", Leaf(1));
    EXPECT_EQ(listener.Take(), "");
}

TEST(DNValue, MetaAndDebugTexts) {
    const DNValueRef folder = Filled(1);
    EXPECT_FALSE(folder->FindMeta().IsSet());
    folder->GetMeta()->Set("m", Leaf(1));
    EXPECT_EQ(folder->FindMeta()->Get("m")->GetInt(), 1);
    EXPECT_EQ(folder->GetMeta(), folder->GetMeta());
    const DNValueRef leaf = Leaf(2);
    EXPECT_EQ(leaf->GetMeta(), leaf->GetMeta());
    EXPECT_TRUE(leaf->GetMeta()->IsFolder());
    EXPECT_EQ(leaf->GetChildCount(), 0u);

    EXPECT_EQ(Text(DNValueRef()->GetDebugText()), "DNValue{}");
    folder->Set("text", new DNMemoryDataValue(DNData::String(std::string(300, 'x').c_str())));
    folder->FindOrCreate(DNData::String("none"));
    folder->GetOrCreateFolder(DNData::String("folder"))->Set("y", Leaf(3));
    EXPECT_EQ(Text(folder->Dump()), "k: 0\nv: 0\n"
                                    "k: text\nv: <large>\n"
                                    "k: none\nv: <null>\n"
                                    "k: folder\n"
                                    "  k: y\n  v: 3\n");
    EXPECT_EQ(Text(leaf->Dump()), "v: 2\n");
    EXPECT_EQ(
        Text(CXMessageTarget::ToString(leaf.Get())).rfind("CXMessageTarget{DNMemoryDataValue{", 0),
        0u);
}

TEST(DNStdIndexedValue, ViewsAVector) {
    std::vector<int32_t> numbers{5, 6};
    const DNValueRef view(new DNStdIndexedVector<int32_t>(&numbers));
    EXPECT_EQ(view->GetChildCount(), 2u);
    EXPECT_EQ(view->Get(DNData::Int(1))->GetInt(), 6);
    EXPECT_EQ(view->Get("1")->GetType(), kDNTypeNone) << "keys are numbers";
    EXPECT_TRUE(view->Find(DNData::Int(-1))->IsEnd());
    for (DNIteratorRef at = view->First(); !at->IsEnd(); at->Next()) {
        at->SetValue(Leaf(at->GetValue()->GetInt() * 10));
    }
    EXPECT_EQ(numbers, (std::vector<int32_t>{50, 60}));
    const LogCapture log;
    view->End()->SetKey(DNData::Int(2));
    view->End()->SetValue(Leaf(1));
    EXPECT_EQ(log.Get(), (std::vector<std::string>{
                             "DNStdIndexedWrapper::SetIndexedKey> index out of range 2",
                             "DNStdIndexedWrapper::SetIndexedValue> index out of range 2"}));
    const std::vector<CXString> texts{CXString("a")};
    const DNValueRef readOnly(new DNStdIndexedVector<CXString>(&texts));
    readOnly->First()->SetValue(Leaf(1));
    EXPECT_EQ(Text(readOnly->At(0)->GetValue()->GetString()), "a");
    EXPECT_EQ(texts[0], "a");
}

/// One thread replaces a shared reference while others read it; iterators die on other threads.
TEST(DNValue, SharedReferencesAndIteratorsAcrossThreads) {
    DNValueRef shared = Filled(20);
    std::atomic<bool> stop{false};
    std::vector<std::jthread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&shared, &stop] {
            while (!stop.load(std::memory_order_relaxed)) {
                const DNValueRef mine = DNValueRef::FromShared(shared);
                EXPECT_EQ(mine->ChildAt(3)->GetInt(), 3);
            }
        });
    }
    for (int i = 0; i < 300; ++i) {
        DNValueRef::StoreShared(shared, Filled(20));
    }
    stop = true;
    readers.clear(); // waits for each

    const DNValueRef unindexed = Filled(16); // the first look-up is what makes its index
    std::vector<std::jthread> seekers;
    for (int i = 0; i < 3; ++i) {
        seekers.emplace_back(
            [&unindexed] { EXPECT_EQ(unindexed->Get(DNData::Int(15))->GetInt(), 15); });
    }
    seekers.clear(); // waits for each

    const DNValueRef folder = Filled(2000);
    std::vector<DNIteratorRef> live;
    for (size_t i = 0; i < 1000; ++i) {
        live.push_back(folder->At(1999 - i));
    }
    std::thread dropper([&live] { live.clear(); });
    while (folder->GetChildCount() > 1500) {
        folder->First()->Remove();
    }
    dropper.join();
    EXPECT_EQ(folder->ChildAt(0)->GetInt(), 500);
}

} // namespace
