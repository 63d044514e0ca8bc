// clsImportManager: the import jobs of one DataLayer.
//
// A DataLayer hands out its manager through DataLayer::Import(). The manager keeps a 1-based list of
// jobs; AddCSVImport appends a new clsCSV whose ParentDataLayer is the manager's own, and CSVImport(i)
// gives it back. The jobs live as long as the manager; the manager lives as long as its DataLayer (or
// as long as a caller holds it).
//
// ParentDataLayer is a back reference that never keeps the DataLayer alive.
//
// Thread safety: none; a manager belongs to the thread of its DataLayer.
#pragma once

#include <cstdint>
#include <memory>

#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex {

class DataLayer;
class clsCSV;

class clsImportManager : public Object {
 public:
  clsImportManager();
  ~clsImportManager() override;
  clsImportManager(const clsImportManager&) = delete;
  clsImportManager& operator=(const clsImportManager&) = delete;

  // The DataLayer the jobs fill and report to; empty once it has gone.
  std::shared_ptr<DataLayer> ParentDataLayer() const { return parent_.lock(); }
  void ParentDataLayer(const std::shared_ptr<DataLayer>& value) { parent_ = value; }

  // Creates a CSV import job for ParentDataLayer, appends it and returns the new number of jobs, which
  // is the job's position for CSVImport.
  int32_t AddCSVImport();
  // The number of jobs.
  int32_t Count() const;
  // The job at 1-based position Index; nothing (nullptr) when Index is 0, negative or beyond Count.
  std::shared_ptr<clsCSV> CSVImport(int32_t Index) const;

 private:
  std::weak_ptr<DataLayer> parent_;
  Collection<std::shared_ptr<clsCSV>> jobs_;
};

}  // namespace quorbex
