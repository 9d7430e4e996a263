#include "BrimbleCore/Platform/ATSPI/ATSPIFocusedText.h"

#include <algorithm>
#include <thread>

#include "BrimbleCore/Platform/ATSPI/ATSPIAccessibility.h"
#include "BrimbleCore/Platform/ATSPI/ATSPIHandles.h"
#include "BrimbleCore/Platform/ATSPI/ATSPITree.h"
#include "BrimbleCore/Support/Text.h"

namespace brimble::atspi {
namespace {

constexpr auto kKeysPoll = std::chrono::milliseconds(5);

struct MatchRuleRelease {
  void operator()(AtspiMatchRule* rule) const noexcept { g_object_unref(rule); }
};

struct ArrayRelease {
  void operator()(GArray* array) const noexcept { g_array_free(array, TRUE); }
};

/// The first descendant of `window` that has the keyboard focus, through one Collection query
/// where the toolkit offers it (GTK and Qt do), else by walking the tree.
GObjectPtr<AtspiAccessible> focusedIn(AtspiAccessible* window) {
  if (const GObjectPtr<AtspiCollection> collection(atspi_accessible_get_collection_iface(window));
      collection) {
    const GObjectPtr<AtspiStateSet> focused(atspi_state_set_new(nullptr));
    atspi_state_set_add(focused.get(), ATSPI_STATE_FOCUSED);
    const std::unique_ptr<AtspiMatchRule, MatchRuleRelease> rule(atspi_match_rule_new(
        focused.get(), ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_NONE, nullptr,
        ATSPI_Collection_MATCH_NONE, nullptr, ATSPI_Collection_MATCH_NONE, FALSE));
    CallError error;
    const std::unique_ptr<GArray, ArrayRelease> matches(atspi_collection_get_matches(
        collection.get(), rule.get(), ATSPI_Collection_SORT_ORDER_CANONICAL, 1, TRUE, error.out()));
    if (!error && matches) {
      GObjectPtr<AtspiAccessible> first;
      for (guint i = 0; i < matches->len; ++i) {
        // The array holds a reference to each element; the first is kept, the rest released.
        auto* element = g_array_index(matches.get(), AtspiAccessible*, i);
        if (i == 0) {
          first.reset(element);
        } else {
          g_object_unref(element);
        }
      }
      return first;
    }
  }
  GObjectPtr<AtspiAccessible> found;
  walk(window, [&](AtspiAccessible* element) {
    if (hasState(element, ATSPI_STATE_FOCUSED)) {
      found.reset(static_cast<AtspiAccessible*>(g_object_ref(element)));
      return false;
    }
    return true;
  });
  return found;
}

bool isEditableText(AtspiAccessible* element) {
  const GObjectPtr<AtspiEditableText> editable(atspi_accessible_get_editable_text_iface(element));
  return editable && hasState(element, ATSPI_STATE_FOCUSED) &&
         hasState(element, ATSPI_STATE_EDITABLE);
}

int caretOffset(AtspiText* text) {
  CallError error;
  const int offset = atspi_text_get_caret_offset(text, error.out());
  return error ? -1 : offset;
}

/// Whether the `count` characters before the caret are `expected`.
bool precededBy(AtspiText* text, int caret, const std::string& expected, int count) {
  if (caret < count) {
    return false;
  }
  CallError error;
  return takeString(atspi_text_get_text(text, caret - count, caret, error.out())) == expected &&
         !error;
}

}  // namespace

void ATSPIFocusedText::Release::operator()(_AtspiAccessible* element) const noexcept {
  g_object_unref(element);
}

ATSPIFocusedText::ATSPIFocusedText() = default;
ATSPIFocusedText::~ATSPIFocusedText() = default;

bool ATSPIFocusedText::connected() {
  // libatspi aborts the process when it is used without a bus; the accessibility service knows
  // whether there is one.
  if (!connected_) {
    std::string reason;
    connected_ = ATSPIAccessibility().available(reason);
  }
  return *connected_;
}

ATSPIFocusedText::ElementPtr ATSPIFocusedText::focusedField() {
  if (lastField_ && isEditableText(lastField_.get())) {
    return ElementPtr(static_cast<AtspiAccessible*>(g_object_ref(lastField_.get())));
  }
  lastField_.reset();
  ElementPtr field;
  forEachWindow([&](AtspiAccessible*, AtspiAccessible* window) {
    if (!hasState(window, ATSPI_STATE_ACTIVE)) {
      return true;
    }
    GObjectPtr<AtspiAccessible> focused = focusedIn(window);
    if (focused && isEditableText(focused.get())) {
      field.reset(focused.release());
    }
    return false;
  });
  return field;
}

bool ATSPIFocusedText::insert(const std::string& text, const std::string& keyedBefore) {
  if (!connected()) {
    return false;
  }
  ElementPtr field = focusedField();
  if (!field) {
    return false;
  }
  const GObjectPtr<AtspiText> content(atspi_accessible_get_text_iface(field.get()));
  const GObjectPtr<AtspiEditableText> editable(
      atspi_accessible_get_editable_text_iface(field.get()));
  if (!content || !editable) {
    return false;
  }

  int caret = caretOffset(content.get());
  const int keyed = static_cast<int>(decodeUTF8(keyedBefore).size());
  if (keyed > 0) {
    const auto deadline = std::chrono::steady_clock::now() + kKeysTimeout;
    while (!precededBy(content.get(), caret, keyedBefore, keyed) &&
           std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(kKeysPoll);
      caret = caretOffset(content.get());
    }
  }
  if (caret < 0) {
    return false;
  }

  int at = caret;
  CallError selectionsError;
  if (atspi_text_get_n_selections(content.get(), selectionsError.out()) > 0 && !selectionsError) {
    CallError rangeError;
    AtspiRange* range = atspi_text_get_selection(content.get(), 0, rangeError.out());
    if (range != nullptr && !rangeError && range->start_offset != range->end_offset) {
      const int start = std::min(range->start_offset, range->end_offset);
      const int end = std::max(range->start_offset, range->end_offset);
      CallError deleteError;
      if (atspi_editable_text_delete_text(editable.get(), start, end, deleteError.out()) &&
          !deleteError) {
        at = start;
      }
    }
    g_free(range);
  }

  CallError insertError;
  if (!atspi_editable_text_insert_text(editable.get(), at, text.c_str(),
                                       static_cast<gint>(text.size()), insertError.out()) ||
      insertError) {
    return false;
  }
  // GTK moves the caret past what was inserted at it, as typing does; not every toolkit does.
  const int after = at + static_cast<int>(decodeUTF8(text).size());
  if (caretOffset(content.get()) != after) {
    CallError ignored;
    atspi_text_set_caret_offset(content.get(), after, ignored.out());
  }
  lastField_ = std::move(field);
  return true;
}

std::string ATSPIFocusedText::activeToolkit() {
  if (!connected()) {
    return {};
  }
  std::string toolkit;
  forEachWindow([&](AtspiAccessible* application, AtspiAccessible* window) {
    if (!hasState(window, ATSPI_STATE_ACTIVE)) {
      return true;
    }
    CallError error;
    toolkit = lowercased(takeString(atspi_accessible_get_toolkit_name(application, error.out())));
    return false;
  });
  return toolkit;
}

}  // namespace brimble::atspi
