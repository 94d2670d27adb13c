"""Prints a page with the Python package's public names: their signatures and docstrings, from its sources.

usage: python_reference.py python/orvacam
"""
import ast
import inspect
import pathlib
import re
import sys


def signature(node, drop_self):
    arguments = ast.unparse(node.args)
    if drop_self:
        arguments = re.sub(r'^(self|cls)(, )?', '', arguments)
    result = f' -> {ast.unparse(node.returns)}' if node.returns else ''
    # Types that wait for their definition stand in quotes.
    return f'{node.name}({arguments}){result}'.replace("'", '') if "'" in result else f'{node.name}({arguments}){result}'


def words(text):
    """A docstring in Markdown: sessions become code, and what is said of a name an entry of a list."""
    out, code = [], False
    for line in inspect.cleandoc(text).split('\n'):
        if line.lstrip().startswith('>>>') and not code:
            out += ['', '```py']
            code = True
        elif not line.strip() and code:
            out.append('```')
            code = False
        if not code:
            entry = re.match(r'(?:    )?([a-z_]+(?:, [a-z_]+)*): (.*)', line)
            line = f'- **{entry[1]}**: {entry[2]}' if entry else line.replace('<', '&lt;')
            line = re.sub(r'(?<![`%.\w])([a-z_]\w*\(\))', r'%\1', line)  # no link to C++
            line = re.sub(r'^(Attributes|Raises|Returns|Args|Arguments):$', r'\1:\n', line)
        out.append(line)
    return '\n'.join(out + ['```'] * code)


def public(node):
    return not node.name.startswith('_')


def is_function(node):
    return isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef))


def decorators(node):
    return {ast.unparse(decorator) for decorator in node.decorator_list}


def methods(node):
    for member in node.body:
        if is_function(member) and public(member):
            if any(name.endswith(('.setter', 'overload')) for name in decorators(member)):
                continue
            is_value = 'property' in decorators(member)
            result = f': {ast.unparse(member.returns)}' if member.returns else ''
            shown = f'{member.name}{result}' if is_value else signature(member, 'staticmethod' not in decorators(member))
            yield f'`{shown}`', ast.get_docstring(member)


def head(node):
    """What a class is made with, where that is said in its own words, and what it is derived from."""
    bases = ', '.join(f'`{ast.unparse(base)}`' for base in node.bases)
    made = next((m for m in node.body if is_function(m) and m.name == '__init__' and len(m.args.args) > 1), None)
    arguments = signature(made, True)[len('__init__'):].replace(' -> None', '') if made else ''
    return f'`class {node.name}{arguments}`' + (f', derived from {bases}' if bases else '')


def definitions(folder):
    """Where each name is defined: the classes and functions at the top of the package's files."""
    found = {}
    for path in sorted(folder.rglob('*.py')):
        for node in ast.parse(path.read_text()).body:
            if isinstance(node, ast.ClassDef) or is_function(node):
                found.setdefault(node.name, node)
    return found


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip())
    folder = pathlib.Path(sys.argv[1])
    package = ast.parse((folder / '__init__.py').read_text())
    names = next(ast.literal_eval(node.value) for node in package.body
                 if isinstance(node, ast.Assign) and ast.unparse(node.targets[0]) == '__all__')
    known = definitions(folder)
    print('# Python reference {#python_reference}\n\n' + words(ast.get_docstring(package)))
    for name in names:
        node = known.get(name)
        text = ast.get_docstring(node) if node else None
        if not text:
            sys.exit(f'{name} has no docstring')
        print(f'\n## {name}\n')
        if is_function(node):
            print(f'`{signature(node, False)}`\n')
        else:
            print(head(node) + '\n')
        print(words(text))
        if isinstance(node, ast.ClassDef):
            for shown, said in methods(node):
                print(f'\n{shown}\n')
                if said:
                    print(words(said))


if __name__ == '__main__':
    main()
