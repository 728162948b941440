// write.cpp - example host in C++: builds through navo.hpp the two documents of navo_write.c and
// saves them; the first with std::error_code results, the second with exceptions.
#include <cstdio>
#include <string>
#include <system_error>

#include "navo.hpp"

int main(int argc, char **argv)
{
    const std::string path = argc > 1 ? argv[1] : "sample.navo";
    std::error_code ec;
    navo::Writer w("1.3", navo::encoding::iso8859_2, navo::writer_flags::none, ec);
    // Each call below does nothing once one has been refused; the first refusal is told here.
    auto check = [&](const char *step) {
        if (ec)
            std::fprintf(stderr, "%s: %s (%s)\n", step, w.last_refusal().reason.c_str(),
                         w.last_refusal().place.describe().c_str());
        return !ec;
    };
    if (ec) {
        std::fprintf(stderr, "setup: %s\n", navo::english(ec).c_str());
        return 1;
    }
    w.set_file_header(0, "PRZYKLADOWY PLIK NAVO", ec);
    if (!ec)
        w.set_file_header(1, "20091209", ec);

    // A registration of bank accounts: TOBZBA, whose block IORB repeats (record 0 exists already).
    // A header line refused takes the new document out again.
    const navo::Texts header = {"ZBA-0001", "20091209", "", "", "", "", "", "", "", "", "", "X", "X"};
    const int doc = ec ? 0 : w.add_document("TOBZBA", header, ec);
    const char *const accounts[] = {"11112222333344445555666677778888", "99990000111122223333444455556666",
                                    "12345678901234567890123456789012"};
    auto set = [&](const char *block, int record, const char *field, const char *value) {
        if (!ec)
            w.set(doc, block, record, field, value, ec);
    };
    set("DOZCBA", 0, "DataNadania", "09122009");
    set("DIPL", 0, "Nip", "1234567890");
    set("DIPL", 0, "NazwaSkrocona", "PRZYKŁADOWA FIRMA");  // UTF-8; the file holds ISO 8859-2
    for (int i = 0; i < 3 && !ec; i++) {
        const int record = i == 0 ? 0 : w.add_record(doc, "IORB", ec);
        set("IORB", record, "KodRodzajuZgloszen", i == 2 ? "3" : "1");
        set("IORB", record, "NumerRachunku", accounts[i]);
    }
    set("OPL1", 0, "DataWypelnienia", "09122009");
    if (!ec)
        w.add_error_note(doc, {"E1"}, ec);
    if (!check("TOBZBA"))
        return 1;

    // A deregistration of a payer: TOBZWPA, single blocks only. The throwing calls this time.
    try {
        const int second =
            w.add_document("TOBZWPA", {"ZWPA-0001", "20091209", "", "", "", "", "", "", "", "", "", "X", "X"});
        w.set(second, "DIPL", 0, "Nip", "9876543210");
        w.set(second, "DIPL", 0, "Nazwisko", "KOWALSKI");
        w.set(second, "DIPL", 0, "ImiePierwsze", "JAN");
        w.save(path);  // a file that cannot be written whole is refused too (errc::save_failed)
    } catch (const navo::refused &e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    std::printf("wrote %s\n", path.c_str());
    return 0;
}
