// write.cpp - example host in C++: builds two documents through navo.hpp and saves them; the same
// file as navo_write.c, with every refusal reported as a std::error_code.
#include <cstdio>
#include <string>
#include <system_error>

#include "navo.hpp"

int main(int argc, char **argv)
{
    const std::string path = argc > 1 ? argv[1] : "sample.navo";
    std::error_code ec;
    navo::Writer w(navo::version::v1_3, ec);
    auto check = [&](const char *step) {
        if (ec)
            std::fprintf(stderr, "%s: %s (%s)\n", step, navo::english(ec).c_str(), ec.message().c_str());
        return !ec;
    };
    if (!check("setup"))
        return 1;
    w.set_file_header({"PRZYKLADOWY PLIK NAVO", "20091209"}, ec);

    // A registration of bank accounts: TOBZBA, whose block IORB repeats (record 0 exists already).
    int doc = w.add_document("TOBZBA", ec);
    w.set_header("TOBZBA", doc, {"ZBA-0001", "20091209", "", "", "", "", "", "", "", "", "", "X", "X"}, ec);
    w.set("TOBZBA", doc, "DOZCBA", 0, "DataNadania", "09122009", ec);
    w.set("TOBZBA", doc, "DIPL", 0, "Nip", "1234567890", ec);
    w.set("TOBZBA", doc, "DIPL", 0, "NazwaSkrocona", "PRZYK\xA3" "ADOWA FIRMA", ec);
    const char *accounts[] = {"11112222333344445555666677778888", "99990000111122223333444455556666",
                              "12345678901234567890123456789012"};
    for (int i = 0; i < 3 && !ec; i++) {
        int record = i == 0 ? 0 : w.add_record("TOBZBA", doc, "IORB", ec);
        w.set("TOBZBA", doc, "IORB", record, "KodRodzajuZgloszen", i == 2 ? "3" : "1", ec);
        w.set("TOBZBA", doc, "IORB", record, "NumerRachunku", accounts[i], ec);
    }
    w.set("TOBZBA", doc, "OPL1", 0, "DataWypelnienia", "09122009", ec);
    w.add_error_note("TOBZBA", doc, {"E1"}, ec);
    if (!check("TOBZBA"))
        return 1;

    // A deregistration of a payer: TOBZWPA, single blocks only. The throwing calls this time.
    try {
        doc = w.add_document("TOBZWPA");
        w.set_header("TOBZWPA", doc, {"ZWPA-0001", "20091209", "", "", "", "", "", "", "", "", "", "X", "X"});
        w.set("TOBZWPA", doc, "DIPL", 0, "Nip", "9876543210");
        w.set("TOBZWPA", doc, "DIPL", 0, "Nazwisko", "KOWALSKI");
        w.set("TOBZWPA", doc, "DIPL", 0, "ImiePierwsze", "JAN");
        w.save(path);
    } catch (const std::system_error &e) {
        std::fprintf(stderr, "%s: %s\n", e.what(), navo::english(e.code()).c_str());
        return 1;
    }
    std::printf("wrote %s\n", path.c_str());
    return 0;
}
