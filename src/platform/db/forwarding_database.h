// A database that passes every call on to another one. Derive from it and override the calls to change
// (a test injects a failure, qdl import turns transactions into savepoints) instead of writing out every
// member of db::Database.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "quorbex/engine.h"

namespace quorbex::db::internal {


class ForwardingDatabase : public db::Database {
 public:
  explicit ForwardingDatabase(std::shared_ptr<db::Database> target) : target_(std::move(target)) {}

  const std::string& Name() const override { return target_->Name(); }
  bool IsOpen() const override { return target_->IsOpen(); }
  bool Updatable() const override { return target_->Updatable(); }
  void Close() override { target_->Close(); }
  bool Supports(db::Feature feature) const override { return target_->Supports(feature); }
  std::string QuoteName(std::string_view name) const override { return target_->QuoteName(name); }
  void Execute(const std::string& query, int32_t options) override { target_->Execute(query, options); }
  void Execute(const std::string& query, std::span<const Variant> parameters, int32_t options) override {
    target_->Execute(query, parameters, options);
  }
  int32_t RecordsAffected() const override { return target_->RecordsAffected(); }
  std::shared_ptr<db::Recordset> OpenRecordset(const std::string& name, int32_t type, int32_t options) override {
    return target_->OpenRecordset(name, type, options);
  }
  std::shared_ptr<db::Recordset> OpenRecordset(const std::string& name, std::span<const Variant> parameters,
                                               int32_t type, int32_t options) override {
    return target_->OpenRecordset(name, parameters, type, options);
  }
  std::shared_ptr<db::QueryDef> CreateQueryDef(const std::string& name, const std::string& sql,
                                               bool temporary) override {
    return target_->CreateQueryDef(name, sql, temporary);
  }
  std::shared_ptr<db::QueryDefs> QueryDefs() override { return target_->QueryDefs(); }
  std::shared_ptr<db::TableDefs> TableDefs() override { return target_->TableDefs(); }
  std::shared_ptr<db::TableDef> CreateTableDef(const std::string& name) override {
    return target_->CreateTableDef(name);
  }
  std::vector<db::Relation> Relations() override { return target_->Relations(); }
  void CreateRelation(const db::Relation& relation) override { target_->CreateRelation(relation); }
  void BeginTrans() override { target_->BeginTrans(); }
  void CommitTrans() override { target_->CommitTrans(); }
  void Rollback() override { target_->Rollback(); }
  void Savepoint(const std::string& name) override { target_->Savepoint(name); }
  void ReleaseSavepoint(const std::string& name) override { target_->ReleaseSavepoint(name); }
  void RollbackToSavepoint(const std::string& name) override { target_->RollbackToSavepoint(name); }

  db::Database& Target() const { return *target_; }

 private:
  std::shared_ptr<db::Database> target_;
};

}  // namespace quorbex::db::internal
