#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""A yardstick for the URL score: logistic regression over character 2- to 5-grams of the address.

Learns from labelled lists and tells how much of other lists it finds along its score. Scheme, "www." and a slash at
the end are left out, as they tell how a list was collected. Lists are those that `zeph train` reads. Needs the Debian
package python3-sklearn.

    ngram_baseline.py --phishing FILE... --legitimate FILE... --test-phishing FILE... --test-legitimate FILE...
"""
import argparse
import bz2
import gzip
import lzma
import random
import re

import numpy
from sklearn.feature_extraction.text import HashingVectorizer
from sklearn.linear_model import SGDClassifier
from sklearn.metrics import roc_auc_score

OPENERS = {".xz": lzma.open, ".gz": gzip.open, ".bz2": bz2.open}


def plain_form(url):
    return re.sub(r"^(?:[a-z]+://)?(?:www\.)?", "", url.strip(), flags=re.I).rstrip("/").lower()


def read(paths):
    urls = []
    for path in paths:
        opener = next((opener for end, opener in OPENERS.items() if path.endswith(end)), open)
        with opener(path, "rt", encoding="utf-8", errors="replace") as lines:
            column = 0
            for number, line in enumerate(lines):
                fields = line.rstrip("\r\n").split("\t")
                if number == 0 and "url" in fields:
                    column = fields.index("url")
                elif fields[0] and not line.startswith("#"):
                    urls.append(plain_form(fields[column]))
    return sorted(set(urls))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("--phishing", "--legitimate", "--test-phishing", "--test-legitimate"):
        parser.add_argument(name, nargs="+", required=True)
    options = parser.parse_args()

    grams = HashingVectorizer(analyzer="char", ngram_range=(2, 5), n_features=2**21, binary=True, norm="l2",
                              alternate_sign=False, dtype=numpy.float32)
    phishing, legitimate = read(options.phishing), read(options.legitimate)
    rows = [(url, 1) for url in phishing] + [(url, 0) for url in legitimate]
    random.Random(1).shuffle(rows)
    model = SGDClassifier(loss="log_loss", alpha=1e-6, max_iter=6, tol=None, class_weight="balanced", average=True,
                          random_state=1)
    model.fit(grams.transform(url for url, _ in rows), [label for _, label in rows])

    held_phishing = model.decision_function(grams.transform(read(options.test_phishing)))
    held_legitimate = model.decision_function(grams.transform(read(options.test_legitimate)))
    labels = [1] * len(held_phishing) + [0] * len(held_legitimate)
    print(f"learned {len(phishing)}/{len(legitimate)}, tested {len(held_phishing)}/{len(held_legitimate)}")
    print(f"area under the curve {roc_auc_score(labels, numpy.concatenate([held_phishing, held_legitimate])):.4f}")
    falling = numpy.sort(held_legitimate)[::-1]
    for rate in (0.01, 0.001, 0.0001):
        cut = falling[int(rate * len(falling))]
        print(f"at {100 * rate:g}% false positives: {100 * numpy.mean(held_phishing > cut):.1f}%")


if __name__ == "__main__":
    main()
