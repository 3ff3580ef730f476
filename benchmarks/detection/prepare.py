#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Makes the lists that the default table is learned from, and those that measure it, out of a folder of collections.

The folder holds train_phish, train_ham, train_phish_open and train_ham_open as *_meta.tsv.xz (url, source, date, group,
extra) and brand_facts/ with popular sites and hosters. What comes out, one list each:

    open-phishing, open-legitimate   sources whose terms allow to ship what is learned from them
    popular                          home pages of popular sites, without hosters and without what phishing was seen on
    rest-phishing, rest-legitimate   the other sources: they measure

    prepare.py FOLDER OUTPUT
"""
import lzma
import os
import re
import sys

# Feed lists name feeds, not pages: of these only the host is taken.
FEEDS = ("kagi_smallweb",)
CLOSED_LEGITIMATE = ("phishstorm", "pdd", "iscx")
OPEN_OLD_PHISHING = ("dwfd", "hannousse")
POPULAR = ("cloudflare-top100k", "majestic_million", "university_domains")
HOSTERS = ("hosting_psl_private_2023.tsv", "hosting_observed_in_phish_pre2026.tsv", "misp/dynamic-dns.txt",
           "misp/url-shortener.txt", "misp/link-in-bio.txt")


def rows(path):
    with lzma.open(path, "rt", encoding="utf-8") as lines:
        next(lines)
        for line in lines:
            yield (line.rstrip("\n").split("\t") + [""] * 5)[:5]


def names(path):
    with open(path, encoding="utf-8") as lines:
        for line in lines:
            name = line.split("\t")[0].strip().lower().lstrip("*.")
            if name and not name.startswith("#") and "." in name and " " not in name:
                yield name


def write(folder, name, lines):
    with open(os.path.join(folder, name + ".tsv"), "w", encoding="utf-8") as out:
        out.write("url\tsource\tdate\tgroup\n")
        out.writelines("\t".join(line) + "\n" for line in lines)
    print(f"{len(lines):8d} {name}")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    folder, output = sys.argv[1:]
    os.makedirs(output, exist_ok=True)
    lists = {"open-phishing": [], "rest-phishing": [], "open-legitimate": [], "rest-legitimate": []}
    for url, source, date, group, extra in rows(os.path.join(folder, "train_phish_open_meta.tsv.xz")):
        kind = "rest" if extra.startswith("openphish:") else "open"
        lists[kind + "-phishing"].append((url, source, date, group))
    for url, source, date, group, _ in rows(os.path.join(folder, "train_phish_meta.tsv.xz")):
        kind = "open" if source.startswith(OPEN_OLD_PHISHING) else "rest"
        lists[kind + "-phishing"].append((url, source, date, group))
    for name in ("train_ham_meta.tsv.xz", "train_ham_open_meta.tsv.xz"):
        for url, source, date, group, _ in rows(os.path.join(folder, name)):
            if source.startswith(FEEDS):
                url = re.match(r"\w+://[^/?#]*", url).group(0)
            kind = "rest" if source.startswith(CLOSED_LEGITIMATE) else "open"
            lists[kind + "-legitimate"].append((url, source, date, group))

    facts = os.path.join(folder, "brand_facts")
    hosters = {name for path in HOSTERS for name in names(os.path.join(facts, path))}
    seen = {row[3] for row in lists["open-phishing"] + lists["rest-phishing"] + lists["open-legitimate"]}
    lists["popular"] = []
    for path in POPULAR:
        for name in names(os.path.join(facts, "misp", path + ".txt")):
            domain = ".".join(name.split(".")[-2:])
            if not {name, domain} & hosters and not {name, domain} & seen:
                seen.add(name)
                lists["popular"].append((f"https://{name}/", path, "2026", name))
    for name, lines in lists.items():
        write(output, name, lines)


if __name__ == "__main__":
    main()
