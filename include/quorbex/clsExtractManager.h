// clsExtractManager: the extracts of one DataLayer, handed out by DataLayer::Extract().
//
// An extract (clsExtract) is the subset of the DataLayer's records whose value in one field satisfies a
// comparison. It holds the very record objects of the DataLayer, not copies: a value written through
// an extract is at once the DataLayer's value. The manager makes extracts, keeps them under numeric
// handles and destroys them:
//
//     auto extracts = layer->Extract();
//     int32_t handle = extracts->ExtractRecords("City", "=", "Berlin");   // 0: nothing matched
//     if (handle != 0) extracts->Extracts(handle)->CalcSum("Amount");
//
// Handles count 1, 2, 3, ... in the order extracts are kept, within one manager: an extract that came
// out empty takes no number, and no number is ever given twice, not even after DestroyExtract(999).
//
// Errors: ExtractRecords raises AutomationError 4000 for a field the DataLayer does not know, and
// DestroyExtract raises 9 "Subscript out of range" in the case described there; both are deliberate.
// Everything else a manager reports goes through its DataLayer's ErrorStatus.
//
// Thread safety: a manager belongs to the thread of its DataLayer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex {

class DataLayer;
class clsExtract;

class clsExtractManager : public Object, public std::enable_shared_from_this<clsExtractManager> {
 public:
  // A manager without extracts. DataLayer::Extract() makes one and sets its ParentDL; a manager made
  // otherwise must be held by a std::shared_ptr, or its extracts have no Parent.
  clsExtractManager();
  // Releases the extract list; extracts a client still holds keep their records but lose their Parent.
  ~clsExtractManager() override;
  clsExtractManager(const clsExtractManager&) = delete;
  clsExtractManager& operator=(const clsExtractManager&) = delete;

  // Makes an extract of the parent's records 1 to RecordCount whose field `strFieldname` satisfies
  // `value strOperator varCompareValue` (operators and rules of the filters: "=", "<>", ">", ">=",
  // "<", "<=", "*" wildcards for texts), in the parent's order, and returns its handle.
  //   - 0, and nothing made, when the parent has no records (whatever the name) or nothing matches; an
  //     empty extract takes no handle.
  //   - The name is checked with one "*" at either end dropped: when the parent's FieldID does not
  //     find it, raises AutomationError 4000, source "Quorbex DataLayer", description "Quorbex
  //     DataLayer: Cannot find fieldname '<strFieldname>' in Extract" (the name as passed); nothing is
  //     made and no handle is taken.
  //   - The records are then matched on the field FieldID finds for the name exactly as passed, so
  //     "*Name*" passes the check but matches nothing (the parent reports its FieldID miss).
  // Raises what the comparison raises (5 for a compare value of exactly "*"), 91 when the parent
  // DataLayer has gone, and 6 "Overflow" should the handles ever run out.
  int32_t ExtractRecords(const std::string& strFieldname, std::string strOperator, Variant varCompareValue);

  // The extract with handle `Index` (a handle, not a position in the list); nullptr when none has it,
  // for instance after it was destroyed.
  std::shared_ptr<clsExtract> Extracts(int32_t Index) const;

  // Destroys the extract with handle `lngObjectHandle`, or every extract for 999: each leaves the list
  // and loses its Parent. The handle counter stays as it is. Returns Empty.
  // The search runs over the positions the list had when the call began; once an extract that was not
  // the last in the list is removed, the search reaches a position past the new end and raises
  // AutomationError 9 "Subscript out of range", the removal done. Callers that destroy single extracts
  // other than the newest one catch that error (or use 999).
  Variant DestroyExtract(int32_t lngObjectHandle);

  // The DataLayer whose records the extracts take; a back reference that never keeps it alive (empty
  // once it has gone).
  std::shared_ptr<DataLayer> ParentDL() const { return parent_dl_.lock(); }
  void ParentDL(const std::shared_ptr<DataLayer>& value) { parent_dl_ = value; }

 private:
  std::weak_ptr<DataLayer> parent_dl_;
  Collection<std::shared_ptr<clsExtract>> extracts_;
  int32_t last_handle_ = 0;  // never lowered: handles are not reused
};

}  // namespace quorbex
