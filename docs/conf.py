# The site: docs/ by Sphinx. docs/build.sh runs it.
project = "QX_db"
author = "the maintainers of QX_db"
extensions = ["myst_parser"]
myst_heading_anchors = 3
html_theme = "furo"
html_title = "QX_db"
html_show_copyright = False
html_copy_source = False
exclude_patterns = ["build.sh"]
# Linked from pages and part of the site as they are.
html_extra_path = ["gateway.schema.json"]


def setup(app):
    """Pages that index.md does not name stand under "More", so that none is lost."""

    def add_rest(app, name, source):
        named = set(source[0].split())
        rest = sorted(app.env.found_docs - named - {"index"})
        if name == "index" and rest:
            pages = "\n".join(rest)
            source[0] += f"\n```{{toctree}}\n:caption: More\n:maxdepth: 1\n\n{pages}\n```\n"

    app.connect("source-read", add_rest)
