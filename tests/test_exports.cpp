// test_exports.cpp - the shared object exports exactly the names navo.h declares for the families built.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

// The functions of include/navo.h by family, with the exported variables.
const std::map<std::string, std::vector<std::string>> kFamilies = {
    {"Context", {"dk_Init", "dk_Destroy", "dk_Malloc", "dk_Free"}},
    {"Dictionary", {"dk_sdInit", "dk_sdDestroy", "dk_sdGetID", "dk_sdGetSafeID", "dk_sdAddStr", "dk_sdDelStr",
                    "dk_sdDopisz", "dk_sdStrCmp", "dk_sdTrimAll"}},
    {"Status and hooks", {"dk_GetNAVOLine", "dk_GetNAVOError", "dk_GetNAVOErrorMessage", "dk_GetLastNAVOErrorMessage",
                          "dk_UstawCallBack", "dk_OnNAVOError", "dk_OnNAVOBlock", "dk_OnNAVODocument"}},
    {"Definitions", {"dk_dfInit", "dk_dfLoadDefinition", "dk_dfDestroyDefinition", "dk_dfDestroy"}},
    {"Embedded texts", {"GetDefTXT_1_2", "GetDefTXT_1_3"}},
    {"Documents", {"dk_InitDocuments", "dk_1fGetIDFormularza", "dk_AddDocument", "dk_RemoveDocument",
                   "dk_RemoveDocuments", "dk_RemoveAllDocuments", "dk_GetDocCount"}},
    {"Spool", {"dk_lfBlockSave"}},
    {"Fields", {"dk_SetField", "dk_GetField"}},
    {"Records", {"dk_AddBlock", "dk_RemoveBlock", "dk_GetBlockCount"}},
    {"Packed access", {"dk_GetNAVODocument", "dk_GetNAVOBlock", "dk_SetNAVODocument", "dk_SetNAVOBlock"}},
    {"Envelope", {"dk_SetDefaultNAVOProlog", "dk_GetNAVOProlog", "dk_GetNAVOHeader", "dk_GetNAVOFooter",
                  "dk_GetDocHeader", "dk_GetDocFooter", "dk_AddNAVOError", "dk_AddDocError", "dk_AddDocOCR"}},
    {"Readers", {"dk_LoadChar", "dk_LoadStringbyLen", "dk_LoadStringforTag", "dk_LoadStringtoTerminator"}},
    {"Load", {"dk_LoadNAVO"}},
    {"Save", {"dk_OpenFileforSave", "dk_SaveProlog", "dk_SaveHeader", "dk_SaveDocument", "dk_SaveFooter",
              "dk_CloseFile", "dk_SaveNAVO"}},
    {"Variables", {"i_lNumerLinii", "i_lLinii", "OnNAVODocument"}},
};

// The families built so far; each issue that lands a family adds it here.
const std::vector<std::string> kBuilt = {
    "Context", "Dictionary", "Status and hooks", "Definitions", "Embedded texts", "Documents", "Spool",
    "Fields", "Records", "Packed access", "Envelope", "Readers", "Load", "Save", "Variables",
};

std::set<std::string> exportedSymbols()
{
    std::set<std::string> names;
    const std::string command = std::string("nm -D --defined-only '") + NAVO_SHARED_LIBRARY + "' 2>/dev/null";
    FILE *pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return names;
    char line[512];
    while (std::fgets(line, sizeof line, pipe) != nullptr) {
        char address[128];
        char type[8];
        char name[256];
        // A sanitizer build adds its own symbols for instrumented globals.
        if (std::sscanf(line, "%127s %7s %255s", address, type, name) == 3 && std::strncmp(name, "__odr_asan", 10) != 0 &&
            std::strncmp(name, "__asan", 6) != 0)
            names.insert(name);
    }
    pclose(pipe);
    return names;
}

}  // namespace

TEST(Exports, DynamicSymbolTableHoldsExactlyTheBuiltFamilies)
{
    std::set<std::string> expected;
    for (const std::string &family : kBuilt) {
        ASSERT_TRUE(kFamilies.count(family)) << family;
        for (const std::string &name : kFamilies.at(family))
            expected.insert(name);
    }
    const std::set<std::string> exported = exportedSymbols();
    ASSERT_FALSE(exported.empty()) << "nm could not read " << NAVO_SHARED_LIBRARY;
    for (const std::string &name : expected)
        EXPECT_TRUE(exported.count(name)) << "not exported: " << name;
    for (const std::string &name : exported)
        EXPECT_TRUE(expected.count(name)) << "exported but not a navo.h name of a built family: " << name;
}

TEST(Exports, NoNameOutsideTheHeader)
{
    std::set<std::string> all;
    for (const auto &family : kFamilies)
        all.insert(family.second.begin(), family.second.end());
    EXPECT_EQ(68u, all.size());  // 65 functions and 3 variables
    for (const std::string &name : exportedSymbols())
        EXPECT_TRUE(all.count(name)) << name;
}
