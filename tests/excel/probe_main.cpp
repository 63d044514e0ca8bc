#include "platform/spreadsheet/spreadsheet.h"
#include "platform/spreadsheet/uno/uno_spreadsheet.h"
#include <iostream>
using namespace quorbex;
int main(int, char** argv) {
  try {
    
    auto app = platform::StartSpreadsheetApplication();
    std::cout << "started group " << platform::UnoOfficeProcessGroup(*app) << std::endl;
    auto wb = app->New();
    std::cout << "sheets " << wb->SheetNames().size() << " " << wb->SheetNames()[0] << " maxrows " << wb->MaxRows() << std::endl;
    CellBlock b(3, 4);
    b.Item(1,1)=Variant(std::string("name")); b.Item(1,2)=Variant(1.5); b.Item(1,3)=Variant(true); b.Item(1,4)=Variant(DateSerial(2024,2,29));
    b.Item(2,1)=Variant(std::string("=1+1")); b.Item(2,2)=Variant(int32_t(7)); b.Item(2,3)=Variant(false); b.Item(2,4)=Variant(Date{45000.25});
    wb->WriteCells(wb->SheetNames()[0], 1, 1, b);
    auto r = wb->ReadUsedRange(wb->SheetNames()[0]);
    std::cout << "used " << r.Rows() << "x" << r.Columns() << std::endl;
    for (auto& c : r.Cells()) std::cout << int(c.Type()) << ":" << CStr(c) << " | ";
    std::cout << std::endl;
    auto mod = wb->AddModule("Sub Hello()\n Range(\"E5\").Value = 42\nEnd Sub\nSub Bad()\n Err.Raise 1000, , \"boom\"\nEnd Sub\n");
    std::cout << "module " << mod << std::endl;
    wb->RunMacro("Hello");
    std::cout << "E5 " << CStr(wb->ReadCells(wb->SheetNames()[0], 5,5,1,1).Item(1,1)) << std::endl;
    try { wb->RunMacro("Bad"); } catch (std::exception& e) { std::cout << "bad: " << e.what() << std::endl; }
    try { wb->RunMacro("Nope"); } catch (std::exception& e) { std::cout << "nope: " << e.what() << std::endl; }
    wb->SaveAs(std::string(argv[1]) + "/t.xlsx");
    wb->SaveAs(std::string(argv[1]) + "/p.xlsx", "secret");
    wb->SaveAs(std::string(argv[1]) + "/t.ods");
    wb->Close(false);
    try { app->Open(std::string(argv[1]) + "/p.xlsx", std::string("wrong"), false); } catch (std::exception& e) { std::cout << "wrongpw: " << e.what() << std::endl; }
    try { app->Open(std::string(argv[1]) + "/p.xlsx", std::nullopt, false); } catch (std::exception& e) { std::cout << "nopw: " << e.what() << std::endl; }
    auto p = app->Open(std::string(argv[1]) + "/p.xlsx", std::string("secret"), true);
    std::cout << "pw ok " << CStr(p->ReadCells("Sheet1",1,1,1,1).Item(1,1)) << std::endl;
    p->Close(false);
    try { app->Open(std::string(argv[1]) + "/junk.xlsx", std::nullopt, false); } catch (std::exception& e) { std::cout << "junk: " << e.what() << std::endl; }
    try { app->Open(std::string(argv[1]) + "/none.xlsx", std::nullopt, false); } catch (std::exception& e) { std::cout << "none: " << e.what() << std::endl; }
    app->Quit();
    std::cout << "quit running=" << app->Running() << std::endl;
  } catch (std::exception& e) { std::cout << "ERR " << e.what() << std::endl; return 1; }
}
