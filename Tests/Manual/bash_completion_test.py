#!/usr/bin/env python3
"""Completion in bash, which is asked as the shell asks: by the words of the line."""

import completions
import manual

# As the shell does, it splits a word at its equals signs.
ASK = r"""
source "$1/Tools/zavevents/completion/zavevents.bash" || exit 1
shift
COMP_WORDS=(zavevents)
for word; do
    if [[ $word == *=* ]]; then
        COMP_WORDS+=("${word%%=*}" = )
        word=${word#*=}
        [[ -z $word ]] && continue
    fi
    COMP_WORDS+=("$word")
done
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
[[ $(complete -p zavevents) =~ -F\ ([^ ]+) ]] || exit 1
${BASH_REMATCH[1]} zavevents "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
((${#COMPREPLY[@]} == 0)) || printf '%s\n' "${COMPREPLY[@]}"
"""


class BashCompletion(completions.CompletionTest, manual.ManualTest):
    def complete(self, *words):
        asked = manual.run("bash", "--norc", "-c", ASK, "bash", manual.PROJECT, *words, cwd=self.directory)
        self.assertEqual((asked.returncode, asked.stderr), (0, ""), words)
        self.assertEqual(len(set(asked.stdout.splitlines())), len(asked.stdout.splitlines()), "nothing comes twice")
        return set(asked.stdout.splitlines())

    def test_offers_values_before_any_letter_of_them(self):
        self.assertEqual(self.complete("--log="), {"verbose", "error", "off"})


if __name__ == "__main__":
    manual.main()
