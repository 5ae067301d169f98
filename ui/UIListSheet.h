// Lets the user choose one of several.
#pragma once

#include "ui/UISheet.h"

class UILabel;
class UIListControl;

/// A heading, a list, and the buttons "OK" and "Cancel". OK and a double click post a
/// CXMessageStringParam with the id of the chosen entry; Cancel posts nothing.
class UIListSheet : public UISheet {
public:
    static constexpr const char* kType = "list-sheet";
    /// An entry: what it is, and what the user reads.
    struct Entry {
        CXString id;
        CXString text;
    };
    /// `selected` is the id of the entry that is marked at first; none if no entry has it.
    UIListSheet(UIElement* attachedTo, const CXString& heading, std::vector<Entry> entries,
                const CXString& selected, const CXString& message);
    const char* GetType() const override { return kType; }

    CXResult ProcessMessage(const CXMessage& message) override;

protected:
    void MakeContent() override;
    int32_t PlaceContent(int32_t left, int32_t top, int32_t width) override;
    std::unique_ptr<CXMessage> MakeReply(size_t index) override;
    UIControl* PickFocus() const override;

private:
    static constexpr int32_t kListHeight = 160;
    static constexpr size_t kOkay = 0;

    void ShowOkayState();

    CXString m_heading;
    std::vector<Entry> m_entries;
    CXString m_selected;
    UILabel* m_label = nullptr;
    UIListControl* m_list = nullptr;
};
