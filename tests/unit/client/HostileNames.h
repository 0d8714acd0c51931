// Recordings whose names try to break what they are written into.
#pragma once

#include "DbBuilder.h"

#include <string>
#include <vector>

constexpr char Script[] =
    "</script><script>window.harmed=1</script><img src=x onerror=\"harmed=1\">";

// Stacks of hostile names, recursion, and two threads. With `all` also what only other forms
// stumble over, or what reaches no page as it is.
inline void fillHostile(DbBuilder& b, bool all = false) {
    std::vector<std::string> names = {Script,
                                      "<!--",
                                      "\xf0\x9f\x94\xa5",
                                      "a\xe2\x80\xae"
                                      "b",
                                      "-->\\u003c\\\"'${1}@HEAD@",
                                      std::string(100000, 'n')};
    if (all) {
        const std::string others[] = {
            "=1+1", // a formula
            "\"quoted\", \r\n'; drop table methods; --",
            "\x01\x1b[31m\x7f",         // controls
            "\xc0\x80z",                // the JVM's zero character
            "\xed\xa0\xbd\xed\xb4\xa5", // its pair of surrogates
            "\xed\xa0\x80",             // half a pair
            "\xff\xfe",                 // no text at all
        };
        names.insert(names.end(), std::begin(others), std::end(others));
    }
    b.sample("http-1", "com.a.Main.run", 90000000);
    b.sample("http-1", "com.a.Main.run;com.a.Main.work", 60000000);
    b.sample("http-1", "com.a.Main.run;com.a.Main.work;com.a.Main.work", 20000000);
    b.line("http-1", "com.a.Main.run;com.a.Main.work;com.a.Main.work", 17, 15000000);
    b.line("http-1", "com.a.Main.run;com.a.Main.work;com.a.Main.work", 19, 9000000); // too much
    b.line("nobody", "com.a.Main.run", 4, 1);
    b.sample("http-1", "com.a.Main.run;java.util.Map.get", 10000000);
    b.sample(std::string("<b>\xff") + Script, "com.a.Main.work", 5000000);
    for (const std::string& name : names) {
        std::string method = name;
        for (char& c : method) {
            c = c == ';' ? ':' : c; // it parts the methods of a stack here
        }
        b.sample("http-1", "com.a.Main.run;C." + method, 1000000);
    }
}
